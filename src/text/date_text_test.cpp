// Unit: dates as HTTP headers and log files show them.
#include "text/date_text.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace kova {
namespace {

TEST(HttpDateTest, HasTheFixedForm) {
  EXPECT_STREQ(HttpDate(784111777).Narrow(), "Sun, 06 Nov 1994 08:49:37 GMT");
  EXPECT_STREQ(HttpDate(0).Narrow(), "Thu, 01 Jan 1970 00:00:00 GMT");
  EXPECT_STREQ(HttpDate(86399).Narrow(), "Thu, 01 Jan 1970 23:59:59 GMT");
  EXPECT_STREQ(HttpDate(951825600).Narrow(), "Tue, 29 Feb 2000 12:00:00 GMT");
  EXPECT_STREQ(HttpDate(4102444800).Narrow(), "Fri, 01 Jan 2100 00:00:00 GMT");
}

TEST(HttpDateTest, AgreesWithTheCLibrary) {
  for (std::time_t time = 1; time < 4000000000; time += 86400 * 11 + 4661) {
    char expected[128];
    std::strftime(expected, sizeof(expected), "%a, %d %b %Y %H:%M:%S GMT",
                  std::gmtime(&time));
    EXPECT_STREQ(HttpDate(time).Narrow(), expected);
  }
}

std::tm Time(int year, int month, int day, int weekday, int hour, int minute,
             int second) {
  std::tm time = {};
  time.tm_year = year - 1900;
  time.tm_mon = month - 1;
  time.tm_mday = day;
  time.tm_wday = weekday;
  time.tm_hour = hour;
  time.tm_min = minute;
  time.tm_sec = second;
  return time;
}

TEST(StandardTimeTextTest, IsTheStandardsText) {
  EXPECT_EQ(StandardTimeText(Time(2026, 11, 20, 5, 23, 52, 14)),
            L"Fri Nov 20 23:52:14 2026");
}

TEST(StandardTimeTextTest, PadsTheDayWithABlankAndTheTimeWithZeros) {
  EXPECT_EQ(StandardTimeText(Time(2023, 1, 1, 0, 0, 0, 0)),
            L"Sun Jan  1 00:00:00 2023");
  EXPECT_EQ(StandardTimeText(Time(2024, 2, 9, 5, 9, 9, 9)),
            L"Fri Feb  9 09:09:09 2024");
  EXPECT_EQ(StandardTimeText(Time(2024, 2, 10, 6, 10, 10, 60)),
            L"Sat Feb 10 10:10:60 2024");
}

TEST(StandardTimeTextTest, NamesEveryDayAndMonth) {
  const wchar_t* const days[] = {L"Sun", L"Mon", L"Tue", L"Wed",
                                 L"Thu", L"Fri", L"Sat"};
  const wchar_t* const months[] = {L"Jan", L"Feb", L"Mar", L"Apr",
                                   L"May", L"Jun", L"Jul", L"Aug",
                                   L"Sep", L"Oct", L"Nov", L"Dec"};
  for (int i = 0; i < 12; ++i) {
    const std::wstring text =
        StandardTimeText(Time(2000, i + 1, 15, i % 7, 1, 2, 3));
    EXPECT_EQ(text, std::wstring(days[i % 7]) + L" " + months[i] +
                        L" 15 01:02:03 2000");
  }
}

}  // namespace
}  // namespace kova
