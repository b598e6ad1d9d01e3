// Patched: the time on this computer's clock.
#include "base/this_computer.h"

#include <gtest/gtest.h>

#include <ctime>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

namespace {

uint64_t g_ticks = 0;

void WINAPI Told(FILETIME* time) {
  time->dwLowDateTime = static_cast<DWORD>(g_ticks);
  time->dwHighDateTime = static_cast<DWORD>(g_ticks >> 32);
}

TEST(ClockTest, CountsWholeSecondsFromTheStartOf1970) {
  const kova::test::ImportPatch<decltype(GetSystemTimeAsFileTime)> patch(
      nullptr, "GetSystemTimeAsFileTime", &Told);
  constexpr uint64_t kStartOf1970 = 116444736000000000;
  g_ticks = kStartOf1970;
  EXPECT_EQ(kova::CurrentTimeSeconds(), 0);
  g_ticks = kStartOf1970 + 9999999;
  EXPECT_EQ(kova::CurrentTimeSeconds(), 0);
  g_ticks = kStartOf1970 + 10000000;
  EXPECT_EQ(kova::CurrentTimeSeconds(), 1);
  // 2106, beyond 32 bits of seconds.
  g_ticks = kStartOf1970 + 42949672960000000;
  EXPECT_EQ(kova::CurrentTimeSeconds(), 4294967296);
}

TEST(ClockTest, IsTheTimeThatTheCRuntimeTells) {
  const int64_t before = std::time(nullptr);
  const int64_t now = kova::CurrentTimeSeconds();
  EXPECT_GE(now, before);
  EXPECT_LE(now, std::time(nullptr));
}

}  // namespace
