// Patched: the accept thread's calls, each failing in its turn.
#include "net/accept_loop.h"

#include <thread>

#include "test/net/gate.h"
#include "test/net/listener_fixture.h"

namespace {

using kova::test::Call;
using kova::test::Gate;
using kova::test::kInfoMask;
using kova::test::kSoonMs;
using kova::test::ServerTest;
using kova::test::TestClient;
using testing::ElementsAre;

constexpr DWORD kFailedExit = 4660;
constexpr wchar_t kStarting[] =
    L"Info WebServerBase::Run: Starting server on port 0";

// Winsock sessions: first the client list's, which it keeps to the server's
// end, then the accept thread's.
constexpr int kListsSession = 1;

struct Row {
  Call call;
  int callsBefore;
  int error;
  const wchar_t* line;
};

const Row kRows[] = {
    {Call::kStartup, kListsSession, 10091,
     L"Error WebServerBase::_AcceptThread: WSAStartup(...) failure. "
     L"result:10091"},
    {Call::kSocket, 0, 10024,
     L"Error WebServerBase::_AcceptThread: AcceptThread: WSASocket(...) "
     L"failure. WSAGetLastError:10024"},
    {Call::kBind, 0, 10013,
     L"Error WebServerBase::_AcceptThread: AcceptThread: bind(...) failure. "
     L"GetLastError:10013"},
    {Call::kListen, 0, 10055,
     L"Error WebServerBase::_AcceptThread: listen(...) failure. "
     L"WSAGetLastError:10055"},
    {Call::kCreateEvent, 0, 8,
     L"Error WebServerBase::_AcceptThread: WSACreateEvent(...) failure for "
     L"ShutdownEvent. WSAGetLastError:8"},
    {Call::kCreateEvent, 1, 14,
     L"Error WebServerBase::_AcceptThread: WSACreateEvent(...) failure for "
     L"networkEvent. WSAGetLastError:14"},
    {Call::kEventSelect, 0, 10022,
     L"Error WebServerBase::_AcceptThread: WSAEventSelect(...) failure. "
     L"WSAGetLastError:10022"},
};

class AcceptThreadTest : public ServerTest {
 protected:
  // Nothing listens, Run() was answered all the same, and nothing stayed open
  // but the handle of the accept thread.
  void ExpectAnsweredWithoutListening() {
    EXPECT_EQ(Run(), 1);
    EXPECT_FALSE(m_server->IsRunning());
    ASSERT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
    EXPECT_EQ(m_windows.ExitCode(0), kFailedExit);
    EXPECT_EQ(m_server->Stop(), 0);
    EXPECT_EQ(m_windows.OpenInAll(), 1u);
    EXPECT_EQ(m_windows.OpenHandles(), 1u);
    EXPECT_EQ(m_windows.OpenSessions(), kListsSession);
  }
};

class AcceptThreadFailures : public AcceptThreadTest,
                             public testing::WithParamInterface<Row> {};

TEST_P(AcceptThreadFailures, EndItAnswerRunAndLeaveNothingOpen) {
  const Row& row = GetParam();
  m_windows.Fail(row.call, row.error, row.callsBefore);
  ExpectAnsweredWithoutListening();
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting, row.line));
}

TEST_P(AcceptThreadFailures, LeaveTheNextRunFreeToSucceed) {
  const Row& row = GetParam();
  m_windows.Fail(row.call, row.error, row.callsBefore);
  EXPECT_EQ(Run(), 1);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(Run(), 1);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.ExitCode(1), 0u);
}

INSTANTIATE_TEST_SUITE_P(EachCall, AcceptThreadFailures,
                         testing::ValuesIn(kRows));

class GrantedVersions : public AcceptThreadTest,
                        public testing::WithParamInterface<WORD> {};

TEST_P(GrantedVersions, OtherThanTwoPointTwoAreRefused) {
  m_windows.GrantVersion(GetParam());
  ExpectAnsweredWithoutListening();
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting,
                          L"Error WebServerBase::_AcceptThread: Requested "
                          L"Socket version does not exist"));
  EXPECT_EQ(m_windows.Calls(Call::kCleanup), 1);
  EXPECT_EQ(m_windows.Calls(Call::kSocket), 0);
}

INSTANTIATE_TEST_SUITE_P(EachByte, GrantedVersions,
                         testing::Values(0x0201, 0x0203, 0x0102, 0x0302,
                                         0x0101));

TEST_F(AcceptThreadTest, AFailedStartupIsNotCleanedUp) {
  m_windows.Fail(Call::kStartup, 10091, kListsSession);
  EXPECT_EQ(Run(), 1);
  ASSERT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
  EXPECT_EQ(m_windows.Calls(Call::kCleanup), 0);
}

TEST_F(AcceptThreadTest, AFailedWaitEndsAThreadThatWasListening) {
  m_windows.Fail(Call::kWait, 10038);
  EXPECT_EQ(Run(), 1);
  ASSERT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(0), kFailedExit);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting,
                          L"Error WebServerBase::_AcceptThread: "
                          L"WSAWaitForMultipleObjects(...) failure. "
                          L"WSAGetLastError:10038"));
  EXPECT_EQ(m_windows.OpenInAll(), 1u);
  EXPECT_EQ(m_windows.OpenSessions(), kListsSession);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_EQ(m_server->Stop(), 1);
}

TEST_F(AcceptThreadTest, AFailedEventEnumerationEndsIt) {
  m_windows.Fail(Call::kEnumEvents, 10050);
  EXPECT_EQ(Run(), 1);
  TestClient client(m_windows.Port());
  ASSERT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(0), kFailedExit);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting,
                                         L"Error WebServerBase::_AcceptThread: "
                                         L"WSAEnumNetworkEvents(...) failure. "
                                         L"WSAGetLastError:10050"));
  EXPECT_EQ(m_windows.OpenInAll(), 1u);
  EXPECT_EQ(m_windows.OpenSessions(), kListsSession);
  EXPECT_EQ(m_server->Stop(), 1);
}

TEST_F(AcceptThreadTest, AFailedAcceptCostsOnlyThatConnection) {
  m_windows.Fail(Call::kAccept, 10054);
  EXPECT_EQ(Run(), 1);
  TestClient refused(m_windows.Port());
  const std::wstring line =
      L"Warning WebServerBase::_AcceptThread: WSAAccept(...) failure. Failure "
      L"ignored. WSAGetLastError:10054";
  EXPECT_TRUE(m_log.WaitFor(line, kSoonMs));
  TestClient served(m_windows.Port());
  EXPECT_TRUE(m_server->WaitForClients(1));
  EXPECT_EQ(m_server->Clients()[0].first, served.Address());
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting, line));
}

class Refuser final : public kova::ConnectionTaker {
 public:
  int AddClient(kova::UniqueSocket& /*socket*/, const std::string& /*address*/,
                uint32_t /*port*/) override {
    return 0;
  }
};

TEST_F(AcceptThreadTest, AConnectionThatNobodyTakesIsLoggedAndClosed) {
  Refuser refuser;
  kova::AcceptLoop loop(refuser);
  ASSERT_TRUE(loop.Listen(0, INADDR_LOOPBACK));
  std::thread accepting([&] { EXPECT_TRUE(loop.Serve()); });
  TestClient client(m_windows.Port());
  EXPECT_TRUE(m_log.WaitFor(
      L"Warning WebServerBase::_AcceptThread: AddClient(...) failure. Failure "
      L"ignored.",
      kSoonMs));
  const kova::UniqueWsaEvent shutdown = loop.TakeShutdownEvent();
  ::WSASetEvent(shutdown.Get());
  accepting.join();
  EXPECT_FALSE(loop.TakeShutdownEvent().IsValid());
  loop.Close();
  EXPECT_EQ(client.ReceiveAll(), "");
  EXPECT_TRUE(client.ClosedByPeer());
}

TEST_F(AcceptThreadTest, AWakeUpWithoutAConnectionIsWaitedOver) {
  m_windows.HideNextEvents();
  Gate second;
  m_windows.Before(Call::kWait, [&](uint64_t) {
    if (m_windows.Calls(Call::kWait) == 2) second.Pass();
  });
  second.Open();
  EXPECT_EQ(Run(), 1);
  TestClient client(m_windows.Port());
  EXPECT_TRUE(second.SomebodyCame());
  EXPECT_EQ(m_windows.Calls(Call::kAccept), 0);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting));
}

TEST_F(AcceptThreadTest, EndsWithZeroAfterAStop) {
  EXPECT_EQ(Run(), 1);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_EQ(m_windows.OpenSockets(), 1u);
  EXPECT_EQ(m_windows.OpenEvents(), 2u);
  EXPECT_EQ(m_windows.OpenSessions(), kListsSession + 1);
  EXPECT_EQ(m_windows.OpenHandles(), 1u);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.ExitCode(0), 0u);
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
  EXPECT_EQ(m_windows.OpenSessions(), kListsSession);
}

TEST_F(AcceptThreadTest, BindsToTheGivenAddressAlone) {
  EXPECT_EQ(m_server->Run(0, 0, 0x7F000001), 1);
  EXPECT_EQ(::ntohl(m_windows.ListeningAddress().sin_addr.s_addr), 0x7F000001u);
}

TEST_F(AcceptThreadTest, BindsToAllInterfacesForZero) {
  EXPECT_EQ(m_server->Run(0, 0, 0), 1);
  EXPECT_EQ(m_windows.ListeningAddress().sin_addr.s_addr, 0u);
  TestClient client(m_windows.Port());
  EXPECT_TRUE(client.IsConnected());
}

TEST_F(AcceptThreadTest, TakesThePortsLowSixteenBits) {
  EXPECT_EQ(m_server->Run(0x10000, 0, INADDR_LOOPBACK), 1);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(L"Info WebServerBase::Run: Starting server on port "
                          L"65536"));
}

class AcceptedConnections : public ServerTest {
 protected:
  AcceptedConnections() : ServerTest(kInfoMask | 0x2) {}

  // The socket that an accept log line names; the line must be the last one.
  static std::wstring SocketDigits(const std::wstring& line) {
    const size_t at = line.find(L":Ox");
    return at == std::wstring::npos ? L"" : line.substr(at + 3, 16);
  }
};

TEST_F(AcceptedConnections, AreLoggedWithSocketPortsAndPeer) {
  Gate gate;
  m_windows.Before(Call::kBeginThread, [&](uint64_t) {
    if (m_windows.ThreadsBegun() == 1) gate.Pass();
  });
  EXPECT_EQ(Run(), 1);
  TestClient client(m_windows.Port());
  ASSERT_TRUE(gate.SomebodyCame());
  const std::vector<std::wstring> lines = m_log.Lines();
  gate.Open();
  ASSERT_EQ(lines.size(), 2u);
  const std::wstring digits = SocketDigits(lines[1]);
  EXPECT_EQ(lines[1],
            L"DetailInfoB WebServerBase::_AcceptThread: AcceptThread: "
            L"Accepted. clientSocket:Ox" +
                digits + L" local port: " + std::to_wstring(m_windows.Port()) +
                L" peer port: 127.0.0.1:" +
                std::to_wstring(client.LocalPort()));
  EXPECT_EQ(digits.size(), 16u);
  EXPECT_EQ(digits.find_first_not_of(L"0123456789ABCDEF"), std::wstring::npos);
  EXPECT_NE(std::stoull(digits, nullptr, 16), 0u);
}

}  // namespace
