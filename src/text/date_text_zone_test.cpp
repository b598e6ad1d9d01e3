// Patched: local times as text, in time zones of the tests' own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cwchar>
#include <optional>
#include <string>

#include "base/windows_api.h"
#include "test/support/import_patch.h"
#include "text/date_text.h"

namespace {

// One hour east of Greenwich, and two from the last Sunday of March to that of
// October. The names are the zone's own.
TIME_ZONE_INFORMATION MiddleEurope(const wchar_t* standardName,
                                   const wchar_t* daylightName) {
  TIME_ZONE_INFORMATION zone = {};
  zone.Bias = -60;
  zone.DaylightBias = -60;
  zone.StandardDate = {0, 10, 0, 5, 3, 0, 0, 0};
  zone.DaylightDate = {0, 3, 0, 5, 2, 0, 0, 0};
  std::wcscpy(zone.StandardName, standardName);
  std::wcscpy(zone.DaylightName, daylightName);
  return zone;
}

TIME_ZONE_INFORMATION g_zone;
DWORD g_zoneId;
DWORD WINAPI GiveZone(TIME_ZONE_INFORMATION* zone) {
  *zone = g_zone;
  return g_zoneId;
}

using ZonePatch = kova::test::ImportPatch<decltype(GetTimeZoneInformation)>;

#if defined(_UCRT)
constexpr wchar_t kRuntime[] = L"ucrtbase.dll";
#else
constexpr wchar_t kRuntime[] = L"msvcrt.dll";
#endif

// The zone of the system, as this program and its C runtime see it.
class LocalTimeTextTest : public testing::Test {
 protected:
  LocalTimeTextTest() { UseZone(L"Winter", L"Summer"); }
  ~LocalTimeTextTest() override {
    m_ofRuntime.reset();
    SetVariable(m_variable);
  }

  static void UseZone(const wchar_t* standardName, const wchar_t* daylightName,
                      const char* variable = "") {
    g_zone = MiddleEurope(standardName, daylightName);
    g_zoneId = TIME_ZONE_ID_STANDARD;
    SetVariable(variable);
  }
  static void SetVariable(const std::string& value) {
    _putenv(("TZ=" + value).c_str());
    _tzset();
  }

 private:
  static std::string Variable() {
    const char* const value = std::getenv("TZ");
    return value == nullptr ? "" : value;
  }

  const std::string m_variable = Variable();
  std::optional<ZonePatch> m_ofRuntime{std::in_place,
                                       ::GetModuleHandleW(kRuntime),
                                       "GetTimeZoneInformation", &GiveZone};
  const ZonePatch m_ofProgram{nullptr, "GetTimeZoneInformation", &GiveZone};
};

TEST_F(LocalTimeTextTest, IsTheTimeOfTheZone) {
  EXPECT_EQ(kova::LocalTimeText(1795218734),
            L"Sat Nov 21 00:52:14 2026 Winter");
}

TEST_F(LocalTimeTextTest, KnowsWhetherDaylightIsSaved) {
  EXPECT_EQ(kova::LocalTimeText(1774745999),
            L"Sun Mar 29 01:59:59 2026 Winter");
  EXPECT_EQ(kova::LocalTimeText(1774746000),
            L"Sun Mar 29 03:00:00 2026 Summer");
  EXPECT_EQ(kova::LocalTimeText(1783000000),
            L"Thu Jul  2 15:46:40 2026 Summer");
}

TEST_F(LocalTimeTextTest, ShowsTheZonesNameInAnyScript) {
  UseZone(L"\u041C\u043E\u0441\u043A\u0432\u0430", L"\u6771\u4EAC");
  EXPECT_EQ(kova::LocalTimeText(1795218734),
            L"Sat Nov 21 00:52:14 2026 \u041C\u043E\u0441\u043A\u0432\u0430");
  EXPECT_EQ(kova::LocalTimeText(1783000000),
            L"Thu Jul  2 15:46:40 2026 \u6771\u4EAC");
}

std::wstring RuntimeText(std::time_t time) {
  const std::tm local = *std::localtime(&time);
  wchar_t zone[128] = {};
  EXPECT_NE(std::wcsftime(zone, 128, L"%Z", &local), 0u);
  return kova::StandardTimeText(local) + L" " + zone;
}

TEST_F(LocalTimeTextTest, AVariableNamesTheZoneInsteadOfTheSystem) {
  UseZone(L"Winter", L"Summer", "EST5EDT");
  const std::wstring text = kova::LocalTimeText(1795218734);
  EXPECT_EQ(text, RuntimeText(1795218734));
  EXPECT_EQ(text.substr(0, 27), L"Fri Nov 20 18:52:14 2026 ES");
}

TEST_F(LocalTimeTextTest, ASystemWithoutAZoneLeavesTheNameToTheRuntime) {
  g_zone = MiddleEurope(L"not shown", L"not shown");
  g_zoneId = TIME_ZONE_ID_INVALID;
  EXPECT_EQ(kova::LocalTimeText(1795218734),
            L"Sat Nov 21 00:52:14 2026 Winter");
}

TEST_F(LocalTimeTextTest, ATimeOutOfRangeStillGivesAText) {
  EXPECT_FALSE(kova::LocalTimeText(INT64_MAX).empty());
  EXPECT_FALSE(kova::LocalTimeText(INT64_MIN).empty());
}

}  // namespace
