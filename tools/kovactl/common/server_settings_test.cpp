// Patched: where the settings lie, on a computer whose name Windows makes up.
#include "common/server_settings.h"

#include <gtest/gtest.h>

#include <string>

#include "base/windows_api.h"
#include "server/server_settings.h"
#include "test/support/import_patch.h"

namespace {

using ::kova::kPortSetting;
using ::kova::kTcpEnabledSetting;
using ::kova::ctl::LogMaskForRun;
using ::kova::ctl::ReadServerSettings;
using ::kova::ctl::SettingsKeyPath;
using ::kova::test::ImportPatch;

constexpr wchar_t kOddName[] = L"A/LONG:NAME%41 OF A::PC//";

BOOL WINAPI OddComputerName(wchar_t* name, DWORD* length) {
  const std::wstring odd = kOddName;
  if (*length <= odd.size()) return FALSE;
  *length = static_cast<DWORD>(odd.size());
  odd.copy(name, odd.size());
  name[odd.size()] = L'\0';
  return TRUE;
}

class ServerSettingsTest : public ::testing::Test {
 protected:
  ~ServerSettingsTest() override {
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, SettingsKeyPath().c_str());
  }

  template <typename Number>
  static void Put(const wchar_t* name, Number number) {
    EXPECT_EQ(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, SettingsKeyPath().c_str(),
                                name, REG_BINARY, &number, sizeof(number)),
              ERROR_SUCCESS);
  }

  ImportPatch<decltype(OddComputerName)> m_name{nullptr, "GetComputerNameW",
                                                &OddComputerName};
};

TEST_F(ServerSettingsTest, LieWhereTheServerLooksWhateverTheComputersName) {
  EXPECT_EQ(SettingsKeyPath(),
            L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\@" +
                std::wstring(kOddName));
  kova::ServerSettings server(kOddName);
  EXPECT_EQ(server.Port(), 5130u);
  Put(kPortSetting.name, uint32_t{8080});
  EXPECT_EQ(server.Port(), 8080u);
}

TEST_F(ServerSettingsTest, AreReadAsTheServerReadsThem) {
  EXPECT_TRUE(ReadServerSettings().tcpEnabled);
  EXPECT_EQ(ReadServerSettings().port, 5130u);
  Put(kPortSetting.name, uint32_t{8080});
  Put(kTcpEnabledSetting.name, uint8_t{0});
  EXPECT_EQ(ReadServerSettings().port, 8080u);
  EXPECT_FALSE(ReadServerSettings().tcpEnabled);
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
