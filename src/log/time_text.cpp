#include "log/time_text.h"

#include <cwchar>
#include <iterator>

#include "base/windows_api.h"

namespace kova {
namespace {

// A FILETIME counts 100 ns from the start of 1601.
constexpr uint64_t kTicksPerSecond = 10000000;
constexpr int64_t kSecondsFrom1601To1970 = 11644473600;

constexpr const wchar_t* kDays[] = {L"Sun", L"Mon", L"Tue", L"Wed",
                                    L"Thu", L"Fri", L"Sat"};
constexpr const wchar_t* kMonths[] = {L"Jan", L"Feb", L"Mar", L"Apr",
                                      L"May", L"Jun", L"Jul", L"Aug",
                                      L"Sep", L"Oct", L"Nov", L"Dec"};

std::wstring Padded(int number, wchar_t padding) {
  const std::wstring digits = std::to_wstring(number);
  return digits.size() < 2 ? padding + digits : digits;
}

std::wstring ZoneName(const std::tm& time) {
  wchar_t name[128] = {};
  const size_t length = std::wcsftime(name, std::size(name), L"%Z", &time);
  return std::wstring(name, length);
}

}  // namespace

int64_t CurrentTimeSeconds() {
  FILETIME now = {};
  ::GetSystemTimeAsFileTime(&now);
  const uint64_t ticks =
      (uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
  return static_cast<int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
}

std::wstring StandardTimeText(const std::tm& time) {
  return std::wstring(kDays[time.tm_wday]) + L" " + kMonths[time.tm_mon] +
         L" " + Padded(time.tm_mday, L' ') + L" " + Padded(time.tm_hour, L'0') +
         L":" + Padded(time.tm_min, L'0') + L":" + Padded(time.tm_sec, L'0') +
         L" " + std::to_wstring(time.tm_year + 1900);
}

std::wstring LocalTimeText(int64_t seconds) {
  const std::time_t time = static_cast<std::time_t>(seconds);
  std::tm local = {};
  if (::localtime_s(&local, &time) != 0) local = {};
  return StandardTimeText(local) + L" " + ZoneName(local);
}

}  // namespace kova
