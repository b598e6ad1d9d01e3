#include "log/time_text.h"

#include <cwchar>
#include <iterator>

#include "base/calendar_names.h"
#include "base/windows_api.h"

namespace kova {
namespace {

// Deliberate: English, whatever the locale of the host.
template <size_t size>
std::wstring Widened(const char (&name)[size]) {
  return std::wstring(name, name + size - 1);
}

std::wstring Padded(int number, wchar_t padding) {
  const std::wstring digits = std::to_wstring(number);
  return digits.size() < 2 ? padding + digits : digits;
}

std::wstring NameByRuntime(const std::tm& time) {
  wchar_t name[128] = {};
  const size_t length = std::wcsftime(name, std::size(name), L"%Z", &time);
  return std::wstring(name, length);
}

// As the C runtimes do, a variable of the environment goes before the system's
// zone. They keep the system's name for it as narrow text, though, in which
// many a script is lost.
std::wstring ZoneName(const std::tm& time) {
  const bool isSetByVariable = ::GetEnvironmentVariableW(L"TZ", nullptr, 0) > 1;
  TIME_ZONE_INFORMATION zone = {};
  if (isSetByVariable ||
      ::GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID) {
    return NameByRuntime(time);
  }
  return time.tm_isdst > 0 ? zone.DaylightName : zone.StandardName;
}

}  // namespace

std::wstring StandardTimeText(const std::tm& time) {
  return Widened(kDayNames[time.tm_wday]) + L" " +
         Widened(kMonthNames[time.tm_mon]) + L" " + Padded(time.tm_mday, L' ') +
         L" " + Padded(time.tm_hour, L'0') + L":" + Padded(time.tm_min, L'0') +
         L":" + Padded(time.tm_sec, L'0') + L" " +
         std::to_wstring(time.tm_year + 1900);
}

std::wstring LocalTimeText(int64_t seconds) {
  const std::time_t time = static_cast<std::time_t>(seconds);
  std::tm local = {};
  if (::localtime_s(&local, &time) != 0) local = {};
  return StandardTimeText(local) + L" " + ZoneName(local);
}

}  // namespace kova
