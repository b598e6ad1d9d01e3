// Times as people and programs read them.
#pragma once

#include <cstdint>
#include <string>

#include "base/windows_api.h"

namespace kova::ctl {

// "2026-11-21", "04:51:57", "007".
std::wstring DateText(const SYSTEMTIME& time);
std::wstring ClockText(const SYSTEMTIME& time);
std::wstring MillisecondsText(const SYSTEMTIME& time);

// A file's time, in units of 100 ns since 1601, UTC: "2026-11-21 04:51:57" in
// this machine's zone, and "2026-11-21T04:51:57Z".
std::wstring LocalTimeText(uint64_t fileTime);
std::wstring UtcTimeText(uint64_t fileTime);

}  // namespace kova::ctl
