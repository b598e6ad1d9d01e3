// How one log line of the server looks on the screen.
#pragma once

#include <string>
#include <string_view>

namespace kova::ctl {

// `line` as the server logs it, channel name first: the channel in a column of
// its own, coloured if `color`, then the text; ends with one line end. Further
// lines of the text are indented to where it starts. Control characters become
// U+FFFD: a log quotes what clients sent, and that must not command a terminal.
// A line that does not start with a channel name is shown without the column.
std::wstring StyleLine(std::wstring_view line, bool color);

// A message of this tool itself, set apart from the server's lines.
std::wstring StyleNotice(std::wstring_view notice, bool color);

}  // namespace kova::ctl
