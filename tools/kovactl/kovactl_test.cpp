// Whole: kovactl.exe as a child, for each of its exit codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/handles.h"
#include "common/program_run.h"
#include "common/registry_value.h"
#include "common/server_settings.h"
#include "log/logger.h"
#include "log/server_logger.h"
#include "server/server_settings.h"

namespace {

using ::kova::UniqueRegistryKey;
using ::kova::UniqueSocket;
using ::kova::ctl::ReadValueState;
using ::kova::ctl::SettingsKeyPath;
using ::kova::ctl::ValueState;
using ::kova::ctl::test::ExpectFailure;
using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr wchar_t kFakeServer[] = L"run --dll fake-server/KOVAServer.dll ";

// A socket on a port that was free; listens, so that nobody else can.
class TakenPort {
 public:
  TakenPort() : m_socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    (void)::bind(m_socket.Get(), reinterpret_cast<sockaddr*>(&address),
                 sizeof(address));
    ::listen(m_socket.Get(), 5);
    int size = sizeof(address);
    ::getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    m_port = ::ntohs(address.sin_port);
  }
  void Free() { m_socket.Reset(); }
  [[nodiscard]] std::wstring Text() const { return std::to_wstring(m_port); }
  [[nodiscard]] std::string Narrow() const { return std::to_string(m_port); }

 private:
  UniqueSocket m_socket;
  unsigned m_port = 0;
};

class KovactlTest : public ::testing::Test {
 protected:
  KovactlTest() {
    WSADATA data{};
    ::WSAStartup(MAKEWORD(2, 2), &data);
    ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, SettingsKeyPath().c_str(), 0, nullptr,
                      0, KEY_ALL_ACCESS, nullptr, m_settings.Receive(),
                      nullptr);
    Delete(kova::kPortSetting.name);
    Delete(kova::kTcpEnabledSetting.name);
  }
  ~KovactlTest() override {
    Delete(kova::kPortSetting.name);
    Delete(kova::kTcpEnabledSetting.name);
    ::SetEnvironmentVariableW(L"KOVA_FAKE_SERVER", nullptr);
    ::WSACleanup();
  }

  // Runs the stand-in library in one of its modes.
  static ProgramResult RunFake(const wchar_t* mode,
                               const std::wstring& arguments) {
    ::SetEnvironmentVariableW(L"KOVA_FAKE_SERVER", mode);
    return RunKovactl(kFakeServer + arguments);
  }

  void Delete(const wchar_t* name) const {
    ::RegDeleteValueW(m_settings.Get(), name);
  }

  [[nodiscard]] ValueState Port() const {
    ValueState state;
    EXPECT_EQ(ReadValueState(m_settings.Get(), kova::kPortSetting.name, state),
              ERROR_SUCCESS);
    return state;
  }

  static std::wstring FreePort() {
    TakenPort port;
    port.Free();
    return port.Text();
  }

  UniqueRegistryKey m_settings;
};

TEST_F(KovactlTest, ShowsHelpAndVersion) {
  const ProgramResult help = RunKovactl(L"run --help");
  EXPECT_EQ(help.exitCode, 0u);
  EXPECT_THAT(help.output, HasSubstr("Examples:\n  kovactl run\n"));
  EXPECT_THAT(help.output, HasSubstr("--port N "));
  EXPECT_EQ(help.errors, "");
  EXPECT_THAT(RunKovactl(L"--help").output, HasSubstr("Exit codes:\n  0  "));
  const ProgramResult version = RunKovactl(L"--version");
  EXPECT_EQ(version.exitCode, 0u);
  EXPECT_THAT(version.output, StartsWith("kovactl "));
}

TEST_F(KovactlTest, ExplainsWrongUsage) {
  const struct {
    const wchar_t* arguments;
    const char* says;
  } kMistakes[] = {
      {L"", "say what to do"},
      {L"fly", "not expected: fly; kovactl --help"},
      {L"run --fly", "not expected: --fly; kovactl run --help"},
      {L"run --port 0", "--port"},
      {L"run --port 65536", "--port"},
      {L"run --port x", "--port"},
      {L"run --seconds -1", "--seconds"},
      {L"run --package x", "--demo"},
      {L"run --color blue", "\"blue\" is not one of auto, always, never"},
  };
  for (const auto& mistake : kMistakes) {
    const ProgramResult result = RunKovactl(mistake.arguments);
    ExpectFailure(result, 2, mistake.says);
    EXPECT_EQ(result.output, "");
  }
}

// Nothing is not all.
TEST_F(KovactlTest, RefusesEmptyArguments) {
  for (const wchar_t* const arguments :
       {L"printers \"\"", L"settings get \"\"", L"log show --logger \"\"",
        L"dumps --folder=", L"probe --share \"\"", L"run --dll= --seconds 0"}) {
    const ProgramResult result = RunKovactl(arguments);
    ExpectFailure(result, 2, "an argument is empty");
    EXPECT_EQ(result.output, "");
  }
}

TEST_F(KovactlTest, MissesALibrary) {
  const ProgramResult result = RunKovactl(L"run --dll C:\\nowhere\\x.dll");
  ExpectFailure(result, 3, "there is no library C:\\nowhere\\x.dll");
  const ProgramResult demo =
      RunFake(L"listen", L"--demo --package C:\\nowhere");
  ExpectFailure(demo, 3,
                "there is no extension C:\\nowhere\\Corvane_V3_NetMon.dll");
}

TEST_F(KovactlTest, RefusesALibraryThatIsNoServer) {
  const ProgramResult other =
      RunKovactl(L"run --dll ..\\bin\\sample-extension\\Corvane_V3_NetMon.dll");
  ExpectFailure(other, 4, "does not export StartKOVAServer");
  const ProgramResult noLibrary =
      RunKovactl(L"run --dll ..\\bin\\KOVAServer.lib");
  ExpectFailure(noLibrary, 4, "cannot load ");
}

TEST_F(KovactlTest, SaysThatThePortIsInUse) {
  const TakenPort port;
  const ProgramResult result = RunFake(L"listen", L"--port " + port.Text());
  ExpectFailure(result, 5, "port " + port.Narrow() + " is in use");
  EXPECT_THAT(result.output, HasSubstr("\nStopped in "));
}

TEST_F(KovactlTest, SaysThatNothingListens) {
  const ProgramResult silent = RunFake(L"silent", L"--port " + FreePort());
  ExpectFailure(silent, 7, "nothing listens on port");
  const ProgramResult error = RunFake(L"error", L"--port " + FreePort());
  ExpectFailure(error, 7, "WSAStartup(...) failure. result:10091");
}

TEST_F(KovactlTest, SaysThatTheServerIsSwitchedOff) {
  const BYTE off = 0;
  ::RegSetValueExW(m_settings.Get(), kova::kTcpEnabledSetting.name, 0,
                   REG_BINARY, &off, 1);
  const ProgramResult result = RunFake(L"silent", L"");
  ExpectFailure(result, 7, "\"TCP Enabled\" is 0");
}

TEST_F(KovactlTest, RunsForAsLongAsAsked) {
  const std::wstring port = FreePort();
  const ProgramResult result = RunFake(
      L"listen", L"--seconds 1 --channels --color always --port " + port);
  EXPECT_EQ(result.exitCode, 0u);
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.output,
              StartsWith("\x1b[32mInfo\x1b[0m        WebServerBase::Run: "));
  EXPECT_THAT(result.output, HasSubstr("It stops after 1 s"));
  EXPECT_THAT(result.output, HasSubstr("Stopped in "));
}

TEST_F(KovactlTest, LetsNoLogLineCommandTheTerminal) {
  const ProgramResult result =
      RunFake(L"clear", L"--seconds 0 --port " + FreePort());
  EXPECT_EQ(result.exitCode, 0u);
  EXPECT_THAT(result.output, HasSubstr("A::B: x\xEF\xBF\xBD[2Jy\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("\x1b")));
}

TEST_F(KovactlTest, PutsThePortBack) {
  const std::wstring arguments = L"--seconds 0 --port " + FreePort();
  EXPECT_EQ(RunFake(L"listen", arguments).exitCode, 0u);
  EXPECT_EQ(Port(), ValueState());
  const ValueState odd{true, REG_BINARY, {1, 2, 3}};
  ::RegSetValueExW(m_settings.Get(), kova::kPortSetting.name, 0, odd.type,
                   odd.data.data(), 3);
  EXPECT_EQ(RunFake(L"listen", arguments).exitCode, 0u);
  EXPECT_EQ(Port(), odd);
  EXPECT_EQ(RunFake(L"silent", arguments).exitCode, 7u);
  EXPECT_EQ(Port(), odd);
}

TEST_F(KovactlTest, PutsBackWhatARunThatDiedHasLeft) {
  const std::wstring port = L"--port " + FreePort();
  EXPECT_EQ(RunFake(L"die", port).exitCode, 3u);
  EXPECT_TRUE(Port().present);
  // The next one must not take what it finds for the state to go back to.
  const ProgramResult next = RunFake(L"listen", L"--seconds 0 " + port);
  EXPECT_EQ(next.exitCode, 0u);
  EXPECT_THAT(next.output, HasSubstr("had not put back \"KOVA Server Port\";"));
  EXPECT_THAT(next.output, HasSubstr("\"Corvane KOVA Server\"; that is done"));
  EXPECT_EQ(Port(), ValueState());
}

TEST_F(KovactlTest, RemovesTheDemonstrationPrinterOnce) {
  EXPECT_EQ(RunFake(L"listen",
                    L"--seconds 0 --demo --package "
                    L"..\\bin\\sample-extension --port " +
                        FreePort())
                .exitCode,
            0u);
  for (const char* const says : {"The demonstration printer is removed.\n",
                                 "There is no demonstration printer.\n"}) {
    const ProgramResult result = RunKovactl(L"run --remove-demo");
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, says);
  }
  EXPECT_THAT(RunKovactl(L"printers").output, Not(HasSubstr("Demo Printer")));
  ExpectFailure(RunKovactl(L"run --demo --remove-demo"), 2, "excludes");
}

TEST_F(KovactlTest, WidensTheLogMaskForTheRunAndPutsItBack) {
  UniqueRegistryKey masks;
  ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kova::kMaskKey, 0, nullptr, 0,
                    KEY_ALL_ACCESS, nullptr, masks.Receive(), nullptr);
  const DWORD mask = 0x80000001;
  ::RegSetValueExW(masks.Get(), kova::kServerLoggerName, 0, REG_DWORD,
                   reinterpret_cast<const BYTE*>(&mask), 4);
  EXPECT_THAT(RunFake(L"mask", L"--channels").output,
              HasSubstr("mask " + std::to_string(0xF8000001)));
  EXPECT_THAT(RunFake(L"mask", L"--verbose").output,
              HasSubstr("mask " + std::to_string(0xF800FFFF)));
  ValueState state;
  EXPECT_EQ(ReadValueState(masks.Get(), kova::kServerLoggerName, state),
            ERROR_SUCCESS);
  EXPECT_EQ(state, (ValueState{true, REG_DWORD, {1, 0, 0, 0x80}}));
  ::RegDeleteValueW(masks.Get(), kova::kServerLoggerName);
}

}  // namespace
