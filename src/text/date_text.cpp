#include "text/date_text.h"

#include <chrono>
#include <cstdio>
#include <cwchar>
#include <iterator>

#include "base/windows_api.h"

namespace kova {
namespace {

// Deliberate: English, whatever the locale of the host.
constexpr char kDayNames[][4] = {"Sun", "Mon", "Tue", "Wed",
                                 "Thu", "Fri", "Sat"};
constexpr char kMonthNames[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

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

OString HttpDate(std::time_t time) {
  using namespace std::chrono;
  const sys_seconds now{seconds(time)};
  const sys_days today = floor<days>(now);
  const year_month_day date(today);
  const hh_mm_ss clock(now - today);
  char text[128];
  std::snprintf(
      text, sizeof(text), "%s, %02u %s %04d %02d:%02d:%02d GMT",
      kDayNames[weekday(today).c_encoding()], static_cast<unsigned>(date.day()),
      kMonthNames[static_cast<unsigned>(date.month()) - 1],
      static_cast<int>(date.year()), static_cast<int>(clock.hours().count()),
      static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()));
  return OString(text);
}

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
