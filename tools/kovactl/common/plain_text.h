// Foreign text on a screen: names, quoted requests, whatever others wrote.
#pragma once

#include <string>
#include <string_view>

namespace kova::ctl {

// `text` with nothing left in it that could command a terminal: control
// characters become U+FFFD, tabs blanks, carriage returns vanish. Line ends at
// the end are cut off; further lines are indented by `indent` blanks.
std::wstring Harmless(std::wstring_view text, size_t indent);

// `text` as one line, for names: line ends count as control characters, too.
std::wstring HarmlessLine(std::wstring_view text);

// Prose of this program, broken at blanks so that no line passes 80 columns;
// every line begins with `indent` blanks and ends with a line end. A word that
// is longer than a line (a path) stays whole. Nothing for an empty text.
std::wstring Wrapped(std::wstring_view text, size_t indent);

}  // namespace kova::ctl
