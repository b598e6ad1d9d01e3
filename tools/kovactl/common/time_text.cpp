#include "common/time_text.h"

namespace kova::ctl {
namespace {

std::wstring Digits(WORD number, size_t width) {
  std::wstring text = std::to_wstring(number);
  if (text.size() < width) text.insert(0, width - text.size(), L'0');
  return text;
}

SYSTEMTIME ToSystemTime(uint64_t fileTime) {
  const FILETIME parts = {static_cast<DWORD>(fileTime),
                          static_cast<DWORD>(fileTime >> 32)};
  SYSTEMTIME time{};
  ::FileTimeToSystemTime(&parts, &time);
  return time;
}

}  // namespace

std::wstring DateText(const SYSTEMTIME& time) {
  return Digits(time.wYear, 4) + L"-" + Digits(time.wMonth, 2) + L"-" +
         Digits(time.wDay, 2);
}

std::wstring ClockText(const SYSTEMTIME& time) {
  return Digits(time.wHour, 2) + L":" + Digits(time.wMinute, 2) + L":" +
         Digits(time.wSecond, 2);
}

std::wstring MillisecondsText(const SYSTEMTIME& time) {
  return Digits(time.wMilliseconds, 3);
}

std::wstring LocalTimeText(uint64_t fileTime) {
  const SYSTEMTIME utc = ToSystemTime(fileTime);
  SYSTEMTIME local{};
  const bool isLocal =
      ::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) != FALSE;
  const SYSTEMTIME& time = isLocal ? local : utc;
  return DateText(time) + L" " + ClockText(time);
}

std::wstring UtcTimeText(uint64_t fileTime) {
  const SYSTEMTIME utc = ToSystemTime(fileTime);
  return DateText(utc) + L"T" + ClockText(utc) + L"Z";
}

}  // namespace kova::ctl
