// "kovactl log follow": which debugger lines are the server's, how they look,
// and showing them as they come.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/windows_api.h"
#include "common/exit_code.h"
#include "common/output.h"
#include "logs/debug_buffer.h"

namespace kova::ctl {

// Whether a line looks like the server's: a channel's name, a blank, a method
// and ": "; or one of the two messages that the server sends to the debugger
// alone.
bool IsServerLine(std::wstring_view text);

// Which lines to show.
struct LineFilter {
  std::optional<uint32_t> processId;
  bool all = false;

  [[nodiscard]] bool Takes(const DebugLine& line) const;
};

// "hh:mm:ss.mmm", the process id, the channel and the text, coloured if
// `color`; further lines of the text stand below its beginning. Ends with a
// line end.
std::wstring FollowText(const DebugLine& line, const SYSTEMTIME& now,
                        bool color);
// The same as one line of JSON with a line end; there `now` is UTC.
std::wstring FollowJson(const DebugLine& line, const SYSTEMTIME& now);

struct FollowOptions {
  LineFilter filter;
  std::optional<uint32_t> seconds;
  ColorMode color = ColorMode::kAuto;
  bool json = false;
};

// Returns when the time is over or the user ends it. Lines go to standard
// output; what is worth knowing about them to standard error.
std::optional<Failure> FollowLog(const FollowOptions& options);

}  // namespace kova::ctl
