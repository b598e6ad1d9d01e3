// Unit: times as log files show them.
#include "log/time_text.h"

#include <gtest/gtest.h>

#include <cwchar>

namespace {

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
  EXPECT_EQ(kova::StandardTimeText(Time(2026, 11, 20, 5, 23, 52, 14)),
            L"Fri Nov 20 23:52:14 2026");
}

TEST(StandardTimeTextTest, PadsTheDayWithABlankAndTheTimeWithZeros) {
  EXPECT_EQ(kova::StandardTimeText(Time(2023, 1, 1, 0, 0, 0, 0)),
            L"Sun Jan  1 00:00:00 2023");
  EXPECT_EQ(kova::StandardTimeText(Time(2024, 2, 9, 5, 9, 9, 9)),
            L"Fri Feb  9 09:09:09 2024");
  EXPECT_EQ(kova::StandardTimeText(Time(2024, 2, 10, 6, 10, 10, 60)),
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
        kova::StandardTimeText(Time(2000, i + 1, 15, i % 7, 1, 2, 3));
    EXPECT_EQ(text, std::wstring(days[i % 7]) + L" " + months[i] +
                        L" 15 01:02:03 2000");
  }
}

TEST(LocalTimeTextTest, EndsInTheZoneNameOfTheRuntime) {
  const std::time_t time = 1795218734;
  const std::tm local = *std::localtime(&time);
  wchar_t zone[128] = {};
  ASSERT_NE(std::wcsftime(zone, 128, L"%Z", &local), 0u);
  EXPECT_EQ(kova::LocalTimeText(time),
            kova::StandardTimeText(local) + L" " + zone);
}

TEST(LocalTimeTextTest, ATimeOutOfRangeStillGivesAText) {
  EXPECT_FALSE(kova::LocalTimeText(INT64_MAX).empty());
  EXPECT_FALSE(kova::LocalTimeText(INT64_MIN).empty());
}

}  // namespace
