// Patched: reading the server's settings, over registry values of our own.
#include "common/server_settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

namespace {

using ::kova::ctl::LogMaskForRun;
using ::kova::ctl::ReadLogMask;
using ::kova::ctl::ReadServerSettings;
using ::kova::ctl::SettingsKeyPath;
using ::kova::test::ImportPatch;

std::map<std::wstring, std::string> g_values;

LSTATUS WINAPI FakeGetValue(HKEY root, const wchar_t* keyPath,
                            const wchar_t* name, DWORD, DWORD*, void* data,
                            DWORD* size) {
  const auto found =
      g_values.find(std::wstring(keyPath) + L"\\" + (name ? name : L""));
  if (root != HKEY_LOCAL_MACHINE || found == g_values.end()) {
    return ERROR_FILE_NOT_FOUND;
  }
  if (found->second.size() > *size) return ERROR_MORE_DATA;
  *size = static_cast<DWORD>(found->second.size());
  std::memcpy(data, found->second.data(), *size);
  return ERROR_SUCCESS;
}

BOOL WINAPI FakeComputerName(wchar_t* name, DWORD* length) {
  const std::wstring fake = L"MY/PC:%41";
  if (*length <= fake.size()) return FALSE;
  *length = static_cast<DWORD>(fake.size());
  fake.copy(name, fake.size());
  name[fake.size()] = L'\0';
  return TRUE;
}

class ServerSettingsTest : public ::testing::Test {
 protected:
  ServerSettingsTest() { g_values.clear(); }

  static void Give(const std::wstring& name, const std::string& bytes) {
    g_values[L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\@MY/PC:%41\\" +
             name] = bytes;
  }

  ImportPatch<decltype(FakeGetValue)> m_values{nullptr, "RegGetValueW",
                                               &FakeGetValue};
  ImportPatch<decltype(FakeComputerName)> m_name{nullptr, "GetComputerNameW",
                                                 &FakeComputerName};
};

TEST_F(ServerSettingsTest, TakesTheComputerNameAsItIs) {
  EXPECT_EQ(SettingsKeyPath(),
            L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\@MY/PC:%41");
}

TEST_F(ServerSettingsTest, HasDefaultsForWhatIsMissing) {
  EXPECT_TRUE(ReadServerSettings().tcpEnabled);
  EXPECT_EQ(ReadServerSettings().port, 5130u);
}

TEST_F(ServerSettingsTest, ReadsValuesOfTheRightSize) {
  Give(L"KOVA Server Port", std::string("\x90\x1f\0\0", 4));
  Give(L"TCP Enabled", std::string(1, '\0'));
  EXPECT_EQ(ReadServerSettings().port, 8080u);
  EXPECT_FALSE(ReadServerSettings().tcpEnabled);
  Give(L"TCP Enabled", "\x02");
  EXPECT_TRUE(ReadServerSettings().tcpEnabled);
}

TEST_F(ServerSettingsTest, PassesValuesOfAnotherSizeOver) {
  for (const size_t size : {0, 1, 3, 5, 8}) {
    Give(L"KOVA Server Port", std::string(size, '\x11'));
    EXPECT_EQ(ReadServerSettings().port, 5130u) << size;
  }
  for (const size_t size : {0, 2, 4}) {
    Give(L"TCP Enabled", std::string(size, '\0'));
    EXPECT_TRUE(ReadServerSettings().tcpEnabled) << size;
  }
}

TEST_F(ServerSettingsTest, ReadsTheServersLogMask) {
  EXPECT_EQ(ReadLogMask(), 0xE0000000u);
  g_values
      [L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks\\"
       L"Corvane KOVA Server"] = std::string("\0\0\0\x84", 4);
  EXPECT_EQ(ReadLogMask(), 0x84000000u);
}

TEST(LogMaskForRunTest, ShowsTheChannelsForPeople) {
  EXPECT_EQ(LogMaskForRun(0xE0000000, false), 0xF8000000u);
  EXPECT_EQ(LogMaskForRun(0, false), 0xF8000000u);
}

TEST(LogMaskForRunTest, ShowsEveryChannelWhenVerbose) {
  EXPECT_EQ(LogMaskForRun(0xE0000000, true), 0xF800FFFFu);
}

TEST(LogMaskForRunTest, KeepsWhatAnAdministratorSwitchedOn) {
  EXPECT_EQ(LogMaskForRun(0x04000010, false), 0xFC000010u);
}

}  // namespace
