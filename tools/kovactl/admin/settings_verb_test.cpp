// Whole: kovactl.exe settings as a child, the real registry, and the server's
// own registry class reading back what it wrote.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "common/program_run.h"
#include "registry/o_registry.h"
#include "test/support/server_settings_scope.h"

namespace {

using ::kova::ctl::test::ExpectRefusal;
using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::kova::test::kNetworkCommunication;
using ::kova::test::kServerPort;
using ::kova::test::kTcpEnabled;
using ::kova::test::ServerSettingsScope;
using ::kova::test::SettingValue;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class SettingsVerbTest : public ::testing::Test {
 protected:
  SettingsVerbTest() {
    wchar_t name[260] = {};
    DWORD units = 260;
    ::GetComputerNameW(name, &units);
    m_server.SetKeyPath(L"LOCAL:Network/@" + ORegistry::EscapeName(name));
  }

  // As the server reads it: the number, or nothing if it is passed over.
  template <typename Number>
  std::optional<Number> ServerReads(const wchar_t* name) {
    Number number = 0;
    constexpr auto kSize = static_cast<int32_t>(sizeof(Number));
    if (m_server.ReadValue(name, &number, kSize) != kSize) return std::nullopt;
    return number;
  }

  // The line after "To undo: kovactl ".
  static std::wstring UndoOf(const ProgramResult& result) {
    constexpr std::string_view kLabel = "To undo: kovactl ";
    const size_t at = result.output.find(kLabel);
    if (at == std::string::npos) return {};
    const size_t from = at + kLabel.size();
    const size_t to = result.output.find('\n', from);
    return {result.output.begin() + static_cast<ptrdiff_t>(from),
            result.output.begin() + static_cast<ptrdiff_t>(to)};
  }

  ServerSettingsScope m_settings;
  ORegistry m_server;
};

TEST_F(SettingsVerbTest, WritesWhatTheServerReads) {
  EXPECT_EQ(RunKovactl(L"settings set port 8080").exitCode, 0u);
  EXPECT_EQ(ServerReads<uint32_t>(kServerPort), 8080u);
  EXPECT_EQ(m_settings.Get(kServerPort),
            (SettingValue{REG_DWORD, {0x90, 0x1F, 0, 0}}));
  EXPECT_EQ(RunKovactl(L"settings set \"tcp enabled\" off").exitCode, 0u);
  EXPECT_EQ(ServerReads<uint8_t>(kTcpEnabled), uint8_t{0});
  EXPECT_EQ(m_settings.Get(kTcpEnabled), (SettingValue{REG_BINARY, {0}}));
  EXPECT_EQ(RunKovactl(L"settings set communication 0").exitCode, 0u);
  EXPECT_EQ(ServerReads<uint8_t>(kNetworkCommunication), uint8_t{0});
  EXPECT_EQ(m_settings.Get(kNetworkCommunication),
            (SettingValue{REG_BINARY, {0}}));
}

TEST_F(SettingsVerbTest, ShowsWhatTheServerMakesOfStoredValues) {
  m_settings.Set(kServerPort, REG_BINARY, "5\0", 2);
  m_settings.SetByte(kTcpEnabled, 7);
  const auto json =
      nlohmann::json::parse(RunKovactl(L"settings get --json").output);
  ASSERT_EQ(json["settings"].size(), 4u);
  EXPECT_EQ(json["settings"][0]["origin"], "unusable");
  EXPECT_EQ(json["settings"][0]["value"], 5130);
  EXPECT_EQ(json["settings"][1]["value"], 7);
  EXPECT_EQ(json["settings"][2]["origin"], "absent");
  EXPECT_TRUE(json["settings"][3]["value"].is_null());
  EXPECT_FALSE(ServerReads<uint32_t>(kServerPort));
  EXPECT_EQ(ServerReads<uint8_t>(kTcpEnabled), uint8_t{7});
}

TEST_F(SettingsVerbTest, ShowsOneSettingInText) {
  const ProgramResult result = RunKovactl(L"settings get Port");
  EXPECT_EQ(result.exitCode, 0u);
  EXPECT_THAT(result.output, StartsWith("HKEY_LOCAL_MACHINE\\SOFTWARE\\"));
  EXPECT_THAT(result.output,
              HasSubstr("\n\nKOVA Server Port       5130   default, nothing is "
                        "stored\n    TCP port 5130\n\nThe server reads "));
}

TEST_F(SettingsVerbTest, PutsBackByItsOwnCommandWhateverWasThere) {
  const SettingValue kBefores[] = {
      {REG_DWORD, {80, 0, 0, 0}}, {REG_BINARY, {1, 2, 3}},
      {REG_SZ, {'a', 0}},         {REG_SZ, {}},
      {REG_DWORD, {0, 0, 1, 0}},
  };
  for (const SettingValue& before : kBefores) {
    m_settings.Set(kServerPort, before.type, before.bytes.data(),
                   static_cast<DWORD>(before.bytes.size()));
    const std::wstring undo = UndoOf(RunKovactl(L"settings reset port"));
    EXPECT_EQ(m_settings.Get(kServerPort), std::nullopt);
    EXPECT_EQ(RunKovactl(undo).exitCode, 0u);
    EXPECT_EQ(m_settings.Get(kServerPort), before);
  }
}

TEST_F(SettingsVerbTest, PutsBackAbsenceByItsOwnCommand) {
  const std::wstring undo = UndoOf(RunKovactl(L"settings set tcp 0"));
  EXPECT_EQ(RunKovactl(undo).exitCode, 0u);
  EXPECT_EQ(m_settings.Get(kTcpEnabled), std::nullopt);
}

TEST_F(SettingsVerbTest, RefusesNonsenseAndChangesNothing) {
  ExpectRefusal(RunKovactl(L"settings set port 65536"), 2, "from 0 to 65535");
  ExpectRefusal(RunKovactl(L"settings set port -1"), 2, "from 0 to 65535");
  ExpectRefusal(RunKovactl(L"settings set port"), 2, "is missing");
  ExpectRefusal(RunKovactl(L"settings set tcp 2"), 2, "1 (on) or 0 (off)");
  ExpectRefusal(RunKovactl(L"settings set port --raw 4"), 2,
                "no type and bytes");
  ExpectRefusal(RunKovactl(L"settings set network 1"), 2, "say which");
  ExpectRefusal(RunKovactl(L"settings set bidirectional 1"), 2,
                "written by the server");
  ExpectRefusal(RunKovactl(L"settings reset bidirectional"), 2,
                "written by the server");
  ExpectRefusal(RunKovactl(L"settings get fly"), 9, "no setting \"fly\"");
  ExpectRefusal(RunKovactl(L"settings"), 2, "kovactl settings --help");
  EXPECT_EQ(m_settings.Get(kServerPort), std::nullopt);
  EXPECT_EQ(m_settings.Get(kTcpEnabled), std::nullopt);
}

TEST_F(SettingsVerbTest, TouchesNoValueThatItCouldNotPutBack) {
  const std::string large(2001, 'x');
  m_settings.Set(kServerPort, REG_BINARY, large.data(), 2001);
  ExpectRefusal(RunKovactl(L"settings set port 80"), 2, "2001 bytes");
  EXPECT_EQ(m_settings.Get(kServerPort)->bytes.size(), 2001u);
}

}  // namespace
