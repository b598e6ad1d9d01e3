// Whole: kovactl.exe probe and status as children, asking a server that runs in
// this process, or something else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "admin/scripted_peer.h"
#include "admin/server_status.h"
#include "common/program_run.h"
#include "test/support/demo_printer.h"
#include "test/support/import_patch.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"
#include "test/support/test_extension.h"
// After the rest of Windows.
#include <iphlpapi.h>

namespace {

using ::kova::ctl::Exchange;
using ::kova::ctl::ExchangeEnd;
using ::kova::ctl::Listener;
using ::kova::ctl::LookAtServer;
using ::kova::ctl::Reach;
using ::kova::ctl::ReachOf;
using ::kova::ctl::StatusFacts;
using ::kova::ctl::test::AfterAnswer;
using ::kova::ctl::test::ExpectFailure;
using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::kova::ctl::test::ScriptedPeer;
using ::kova::test::DemoPrinter;
using ::kova::test::ExtensionFolder;
using ::kova::test::ImportPatch;
using ::kova::test::ServerFixture;
using ::kova::test::TestClient;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::wstring PortOption(uint16_t port) {
  return L" --port " + std::to_wstring(port);
}

uint16_t g_ownPort = 0;

class ProbeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m_server.IsLoaded() && m_printer.IsInstalled());
    m_printer.SetDriverPackage(ExtensionFolder(L"scripted"));
    m_server.Start();
    ASSERT_TRUE(m_server.IsListening());
  }

  ServerFixture m_server;
  DemoPrinter m_printer{L"Probe Printer", L"probe"};
};

TEST_F(ProbeTest, ReachesTheExtensionByNameAndByShare) {
  for (const wchar_t* arguments :
       {L"probe \"Probe Printer\"", L"probe --share PROBE"}) {
    const ProgramResult result = RunKovactl(arguments);
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr("\nThe extension answered: status "));
    EXPECT_THAT(result.output, HasSubstr("\nTimes: connected after "));
  }
}

TEST_F(ProbeTest, GivesTheDiagnosisOfTheServersOwnAnswer) {
  ExpectFailure(RunKovactl(L"probe nobody"), 9, "knows no printer");
  ExpectFailure(RunKovactl(L"probe --share nobody"), 9, "share name");
  m_printer.SetDriverPackage(L"C:\\nowhere");
  ExpectFailure(RunKovactl(L"probe \"Probe Printer\""), 1, "does not exist");
}

TEST_F(ProbeTest, SaysWhenNoFaultIsToBeSeen) {
  m_printer.SetDriverPackage(ExtensionFolder(L"version_2"));
  const ProgramResult result = RunKovactl(L"probe \"Probe Printer\" --json");
  ExpectFailure(result, 1, "no fault can be seen");
  const auto json = nlohmann::json::parse(result.output);
  EXPECT_EQ(json["answeredBy"], "server");
  EXPECT_EQ(json["status"], 400);
  EXPECT_EQ(json["fault"], "none");
}

TEST_F(ProbeTest, FindsNobodyOnAnotherPort) {
  const ProgramResult result = RunKovactl(L"probe \"Probe Printer\"" +
                                          PortOption(kova::test::FreePort()));
  ExpectFailure(result, 10, "nothing listens");
}

TEST_F(ProbeTest, TakesNoAnswerOfAnotherProgram) {
  for (const char* const answer :
       {"HTTP/1.1 200 OK\r\n\r\n", "HTTP/1.1 404 Not Found\r\n\r\n"}) {
    ScriptedPeer peer(answer, AfterAnswer::kClose);
    const ProgramResult result =
        RunKovactl(L"probe --json \"Probe Printer\"" + PortOption(peer.Port()));
    ExpectFailure(result, 10, "does not answer as this server does");
    const auto json = nlohmann::json::parse(result.output);
    EXPECT_EQ(json["reach"], "other");
    EXPECT_EQ(json["answeredBy"], "other");
  }
}

TEST_F(ProbeTest, ComparesTheStatusWithTheExpected) {
  const std::wstring probe = L"probe \"Probe Printer\" --expect ";
  EXPECT_EQ(RunKovactl(probe + L"200").exitCode, 0u);
  ExpectFailure(RunKovactl(probe + L"204"), 1, "with status 200 for printer");
  ExpectFailure(RunKovactl(probe + L"99"), 2, "--expect");
  // The server's own answer is never what is expected.
  ExpectFailure(RunKovactl(L"probe nobody --expect 400"), 9, "answered 400");
}

// The first request, which asks who is there, counts, too.
TEST_F(ProbeTest, TakesNoLongerThanItMayInAll) {
  ScriptedPeer peer("HTTP/1.1 200 OK\r\nX: y", AfterAnswer::kTrickle);
  const ProgramResult result =
      RunKovactl(L"probe a --timeout 1" + PortOption(peer.Port()));
  EXPECT_EQ(result.exitCode, 10u);
}

TEST_F(ProbeTest, RefusesWrongUsage) {
  ExpectFailure(RunKovactl(L"probe"), 2, "name a printer");
  ExpectFailure(RunKovactl(L"probe a --share b"), 2, "excludes");
  ExpectFailure(RunKovactl(L"probe a --timeout 0"), 2, "--timeout");
  ExpectFailure(RunKovactl(L"probe a --port 0"), 2, "--port");
}

// Wine knows no owner of a socket that listens; Windows does.
const auto kTable = reinterpret_cast<decltype(&::GetExtendedTcpTable)>(
    ::kova::test::ReadImportSlot(
        ::kova::test::FindImportSlot(nullptr, "GetExtendedTcpTable")));
DWORD WINAPI OwnedTable(void* buffer, DWORD* size, BOOL order, ULONG family,
                        TCP_TABLE_CLASS kind, ULONG reserved) {
  const DWORD result = kTable(buffer, size, order, family, kind, reserved);
  if (result != NO_ERROR) return result;
  auto* const table = static_cast<MIB_TCPTABLE_OWNER_PID*>(buffer);
  for (DWORD i = 0; i < table->dwNumEntries; ++i) {
    if (table->table[i].dwLocalPort != ::htons(g_ownPort)) continue;
    table->table[i].dwOwningPid = ::GetCurrentProcessId();
  }
  return result;
}

// A change that the host has not read yet looks like a dead host otherwise.
TEST_F(ProbeTest, FindTheHostsPortWhateverTheSettingsSay) {
  const ImportPatch<decltype(::GetExtendedTcpTable)> patch(
      nullptr, "GetExtendedTcpTable", &OwnedTable);
  g_ownPort = m_server.Port();
  for (const uint32_t port : {0U, uint32_t{kova::test::FreePort()}}) {
    m_server.Settings().SetPort(port);
    StatusFacts facts;
    EXPECT_FALSE(LookAtServer({}, 10000, facts).has_value());
    EXPECT_EQ(facts.answer.port, m_server.Port());
    EXPECT_EQ(facts.answer.reach, Reach::kThisServer);
    EXPECT_EQ(facts.unread.size(), port == 0 ? 0u : 1u);
    ASSERT_EQ(facts.search.hosts.size(), 1u);
    EXPECT_EQ(facts.search.hosts[0].listeners,
              (std::vector<Listener>{{m_server.Port(), false}}));
  }
}

TEST_F(ProbeTest, ShowTheHost) {
  const TestClient client(m_server.Port());
  const auto json = nlohmann::json::parse(RunKovactl(L"status --json").output);
  ASSERT_EQ(json["hosts"].size(), 1u);
  const auto& host = json["hosts"][0];
  EXPECT_EQ(host["processId"], ::GetCurrentProcessId());
  EXPECT_THAT(host["program"].get<std::string>(),
              EndsWith("\\kovactl_probe_tests.exe"));
  EXPECT_THAT(host["library"].get<std::string>(), EndsWith("\\KOVAServer.dll"));
  EXPECT_THAT(host["version"].get<std::string>(), StartsWith("1."));
  EXPECT_NE(host["user"], "");
  EXPECT_THAT(host["started"].get<std::string>(), EndsWith("Z"));
  EXPECT_GE(host["threads"], 2);
  EXPECT_GT(host["privateBytes"], 100000);
  EXPECT_GE(json["connections"]["established"], 1);
}

TEST_F(ProbeTest, CannotKnowAPortThatWindowsPicks) {
  m_server.Stop();
  m_server.Settings().SetPort(0);
  ExpectFailure(RunKovactl(L"probe a"), 10, "--port");
  ExpectFailure(RunKovactl(L"status"), 10, "--port");
}

TEST_F(ProbeTest, LetsStatusKnowTheServer) {
  const ProgramResult text = RunKovactl(L"status");
  EXPECT_EQ(text.exitCode, 0u);
  EXPECT_EQ(text.errors, "");
  EXPECT_THAT(text.output, HasSubstr(" answers as this server does.\n"));
  EXPECT_THAT(text.output, HasSubstr("\nLog masks\n"));
  EXPECT_THAT(text.output, HasSubstr("\n  Corvane KOVA Server\n    mask  "));
  EXPECT_THAT(text.output, HasSubstr("\n  DispatcherUtil\n    registered"));
  EXPECT_THAT(text.output, HasSubstr("\nCrash dumps\n"));
  const auto json = nlohmann::json::parse(RunKovactl(L"status --json").output);
  EXPECT_EQ(json["reach"], "this-server");
  EXPECT_EQ(json["port"], m_server.Port());
  EXPECT_EQ(json["settings"][0]["value"], m_server.Port());
  EXPECT_EQ(json["settings"][3]["value"], 1);
}

TEST_F(ProbeTest, LetsStatusMissAServerThatIsStopped) {
  m_server.Stop();
  const ProgramResult stopped = RunKovactl(L"status");
  ExpectFailure(stopped, 10, "see that the server's host runs");
  EXPECT_THAT(stopped.output, StartsWith("Server\n  Nothing listens on port "));
  m_server.Settings().SetByte(L"TCP Enabled", 0);
  ExpectFailure(RunKovactl(L"status"), 10, "kovactl settings set tcp on");
}

TEST_F(ProbeTest, LetsStatusTellOtherProgramsFromTheServer) {
  ScriptedPeer web("HTTP/1.1 400 Bad Request\r\n\r\n", AfterAnswer::kClose);
  const ProgramResult other = RunKovactl(L"status" + PortOption(web.Port()));
  ExpectFailure(other, 10, "does not answer as this server does");
  EXPECT_THAT(other.output, HasSubstr("answers with status 400, not as this"));
  ScriptedPeer mute("", AfterAnswer::kStayOpen);
  const ProgramResult silent =
      RunKovactl(L"status --timeout 1" + PortOption(mute.Port()));
  EXPECT_EQ(silent.exitCode, 10u);
  EXPECT_THAT(silent.output, HasSubstr("did not answer within 1 s."));
}

TEST(ReachOf, JudgesByEndAndAnswer) {
  Exchange exchange;
  exchange.end = ExchangeEnd::kRefused;
  EXPECT_EQ(ReachOf(exchange), Reach::kNothing);
  exchange.end = ExchangeEnd::kTimedOut;
  EXPECT_EQ(ReachOf(exchange), Reach::kSilent);
  exchange.firstByteMs = 1;
  EXPECT_EQ(ReachOf(exchange), Reach::kOther);
  exchange.end = ExchangeEnd::kNoHttp;
  EXPECT_EQ(ReachOf(exchange), Reach::kOther);
  exchange.end = ExchangeEnd::kAnswered;
  EXPECT_EQ(ReachOf(exchange), Reach::kOther);
}

}  // namespace
