#include "http/http_date.h"

#include <chrono>
#include <cstdio>

#include "base/calendar_names.h"

namespace kova {

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

}  // namespace kova
