// Patched: the time on this computer's clock.
#include "base/this_computer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <cwchar>
#include <string>
#include <thread>

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

std::atomic<const wchar_t*> g_toldName = nullptr;  // null: none is told
std::atomic<int> g_asked = 0;

BOOL WINAPI TellName(wchar_t* name, DWORD* units) {
  EXPECT_EQ(*units, 260u);
  ++g_asked;
  if (g_toldName == nullptr) return FALSE;
  std::wcscpy(name, g_toldName);
  return TRUE;
}

TEST(ComputerNameTest, IsKnownFromTheLastTimeThatItWasTold) {
  const kova::test::ImportPatch<decltype(GetComputerNameW)> patch(
      nullptr, "GetComputerNameW", &TellName);
  const std::wstring longest(259, L'\u00C4');
  for (const wchar_t* name : {L"HOST", L"PRINTHOST", L"A", longest.c_str()}) {
    g_toldName = name;
    EXPECT_EQ(kova::ComputerName(), name);
    g_toldName = L"LATER";
    g_asked = 0;
    EXPECT_EQ(kova::KnownComputerName(), name);
    EXPECT_EQ(g_asked, 0);
  }
}

TEST(ComputerNameTest, IsAskedForWhereItWasNotTold) {
  const kova::test::ImportPatch<decltype(GetComputerNameW)> patch(
      nullptr, "GetComputerNameW", &TellName);
  g_toldName = nullptr;
  EXPECT_EQ(kova::ComputerName(), L"");
  EXPECT_EQ(kova::KnownComputerName(), L"");
  g_toldName = L"HOST";
  EXPECT_EQ(kova::KnownComputerName(), L"HOST");
}

TEST(ComputerNameTest, IsReadWholeWhileItIsWritten) {
  const kova::test::ImportPatch<decltype(GetComputerNameW)> patch(
      nullptr, "GetComputerNameW", &TellName);
  const std::wstring names[] = {std::wstring(200, L'a'), L"bb"};
  g_toldName = names[0].c_str();
  (void)kova::ComputerName();
  std::atomic<bool> done = false;
  std::thread reader([&] {
    while (!done) {
      const std::wstring name = kova::KnownComputerName();
      EXPECT_TRUE(name == names[0] || name == names[1]);
    }
  });
  for (int i = 0; i < 20000; ++i) {
    g_toldName = names[i % 2].c_str();
    (void)kova::ComputerName();
  }
  done = true;
  reader.join();
}

}  // namespace
