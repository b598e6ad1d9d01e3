// Points in time as text, in English whatever the locale of the host, and the
// same with every C runtime.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "text/o_string.h"

namespace kova {

// `time` (seconds since 1970, UTC, not negative) in the fixed form of RFC 9110
// section 5.6.7, as HTTP headers carry it: "Sun, 06 Nov 1994 08:49:37 GMT".
[[nodiscard]] OString HttpDate(std::time_t time);

// What the C standard's strftime (C17 7.27.3.5) gives for "%c" in the "C"
// locale, such as L"Fri Nov 20 23:52:14 2026"; the day of the month is padded
// with a blank. `time` must hold a valid date.
[[nodiscard]] std::wstring StandardTimeText(const std::tm& time);

// StandardTimeText() of the local time, a blank, and the time zone's name, in
// whatever script: the system's, or the C runtime's where the variable TZ names
// the zone. A time that the C runtime cannot convert is shown as the start of
// 1900.
[[nodiscard]] std::wstring LocalTimeText(int64_t seconds);

}  // namespace kova
