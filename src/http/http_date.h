// The time as HTTP headers carry it.
#pragma once

#include <ctime>

#include "text/o_string.h"

namespace kova {

// `time` (seconds since 1970, UTC, not negative) in the fixed form of RFC 9110
// section 5.6.7, e.g. "Sun, 06 Nov 1994 08:49:37 GMT": what strftime gives for
// "%a, %d %b %Y %H:%M:%S GMT" in the "C" locale, whatever locale the host
// process has set.
[[nodiscard]] OString HttpDate(std::time_t time);

}  // namespace kova
