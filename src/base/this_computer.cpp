#include "base/this_computer.h"

#include "base/windows_api.h"

namespace kova {
namespace {

// A FILETIME counts 100 ns from the start of 1601.
constexpr uint64_t kTicksPerSecond = 10000000;
constexpr int64_t kSecondsFrom1601To1970 = 11644473600;

constexpr DWORD kNameUnits = 260;

}  // namespace

int64_t CurrentTimeSeconds() {
  FILETIME now = {};
  ::GetSystemTimeAsFileTime(&now);
  const uint64_t ticks =
      (uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
  return static_cast<int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
}

std::wstring ComputerName() {
  wchar_t name[kNameUnits] = {};
  DWORD units = kNameUnits;
  if (!::GetComputerNameW(name, &units)) return {};
  return std::wstring(name);
}

}  // namespace kova
