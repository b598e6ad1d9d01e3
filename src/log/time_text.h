// The text of a point in time, as log files show it.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace kova {

// What the C standard's strftime (C17 7.27.3.5) gives for "%c" in the "C"
// locale, such as L"Fri Nov 20 23:52:14 2026"; the day of the month is padded
// with a blank. Composed here because C runtimes differ in it. `time` must
// hold a valid date.
std::wstring StandardTimeText(const std::tm& time);

// StandardTimeText() of the local time, a blank, and the time zone's name, in
// whatever script: the system's, or the C runtime's where the variable TZ names
// the zone. A time that the C runtime cannot convert is shown as the start of
// 1900.
std::wstring LocalTimeText(int64_t seconds);

}  // namespace kova
