#include "text/date_text.h"

#include <algorithm>
#include <chrono>
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

// Texts of fixed form are written into an example of themselves.
template <typename Unit>
void PutName(Unit* first, const char (&name)[4]) {
  std::copy_n(name, 3, first);
}

// In `width` places, with zeros in front; what does not fit is left out.
template <typename Unit>
void PutNumber(Unit* first, int width, int number) {
  for (Unit* place = first + width; place != first; number /= 10) {
    *--place = static_cast<Unit>('0' + number % 10);
  }
}

template <typename Unit>
void PutClock(Unit* first, int hours, int minutes, int seconds) {
  PutNumber(first, 2, hours);
  PutNumber(first + 3, 2, minutes);
  PutNumber(first + 6, 2, seconds);
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
  char text[] = "Sun, 06 Nov 1994 08:49:37 GMT";
  PutName(text, kDayNames[weekday(today).c_encoding()]);
  PutNumber(text + 5, 2, static_cast<int>(unsigned{date.day()}));
  PutName(text + 8, kMonthNames[unsigned{date.month()} - 1]);
  PutNumber(text + 12, 4, int{date.year()});
  PutClock(text + 17, static_cast<int>(clock.hours().count()),
           static_cast<int>(clock.minutes().count()),
           static_cast<int>(clock.seconds().count()));
  return OString(text);
}

std::wstring StandardTimeText(const std::tm& time) {
  wchar_t text[] = L"Fri Nov 20 23:52:14 2026";
  PutName(text, kDayNames[time.tm_wday]);
  PutName(text + 4, kMonthNames[time.tm_mon]);
  PutNumber(text + 8, 2, time.tm_mday);
  if (text[8] == L'0') text[8] = L' ';
  PutClock(text + 11, time.tm_hour, time.tm_min, time.tm_sec);
  PutNumber(text + 20, 4, time.tm_year + 1900);
  return text;
}

std::wstring LocalTimeText(int64_t seconds) {
  const std::time_t time = static_cast<std::time_t>(seconds);
  std::tm local = {};
  if (::localtime_s(&local, &time) != 0) local = {};
  return StandardTimeText(local) + L" " + ZoneName(local);
}

}  // namespace kova
