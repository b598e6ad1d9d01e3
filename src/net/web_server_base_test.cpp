// Patched: starting and stopping the listening server.
#include <cerrno>

#include "net/server_fixture.h"
#include "net/test_gate.h"

namespace {

using kova::UniqueSocket;
using kova::test::Call;
using kova::test::Gate;
using kova::test::kInfoMask;
using kova::test::kSoonMs;
using kova::test::LoopbackClient;
using kova::test::ServerTest;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD kFailedExit = 4660;
constexpr uint32_t kDetailInfo = 0x10000000;
constexpr wchar_t kStarting[] =
    L"Info WebServerBase::Run: Starting server on port 0";
constexpr wchar_t kNoAnswer[] =
    L"Error WebServerBase::Run: Run: Unable to get response from Accept "
    L"Thread within specified Timeout. Timeout:30000";

class WebServerBaseTest : public ServerTest {
 protected:
  WebServerBaseTest() : ServerTest(kInfoMask | kDetailInfo) {}
};

// A socket that listens on a port which nobody else may take.
class OccupiedPort {
 public:
  OccupiedPort() : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    const BOOL exclusive = TRUE;
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                 reinterpret_cast<const char*>(&exclusive), sizeof(exclusive));
    sockaddr_in address = LoopbackClient::Loopback(0);
    int bytes = sizeof(address);
    (void)::bind(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), bytes);
    ::listen(m_socket.Get(), 1);
    ::getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&address),
                  &bytes);
    m_port = ::ntohs(address.sin_port);
  }
  [[nodiscard]] uint16_t Port() const { return m_port; }

 private:
  UniqueSocket m_socket;
  uint16_t m_port = 0;
};

TEST_F(WebServerBaseTest, StartsStopped) {
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_EQ(m_server->KilobytesReceived(), 0);
  EXPECT_EQ(m_server->KilobytesSent(), 0);
  EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(WebServerBaseTest, ListensFromRunToStop) {
  EXPECT_EQ(Run(), 1);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_TRUE(LoopbackClient(m_watch.Port()).IsConnected());
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_FALSE(LoopbackClient(m_watch.Port()).IsConnected());
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting));
}

TEST_F(WebServerBaseTest, EachRunSetsTheClientTimeout) {
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(m_server->ClientTimeoutMs(), 300000u);
  m_server->SetClientTimeoutMs(0);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(m_server->ClientTimeoutMs(), 300000u);
}

TEST_F(WebServerBaseTest, ASecondRunIsRefusedAndChangesNothing) {
  EXPECT_EQ(Run(), 1);
  const uint16_t port = m_watch.Port();
  m_server->SetClientTimeoutMs(5);
  EXPECT_EQ(m_server->Run(1, 0, 0), 0);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting,
                          L"DetailInfo WebServerBase::Run: Server is already "
                          L"running"));
  EXPECT_EQ(m_server->ClientTimeoutMs(), 5u);
  EXPECT_EQ(m_watch.ThreadsBegun(), 1u);
  EXPECT_TRUE(LoopbackClient(port).IsConnected());
}

TEST_F(WebServerBaseTest, ReportsAThreadThatCannotBeStarted) {
  m_watch.Fail(Call::kBeginThread, EAGAIN);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting,
                          L"Error WebServerBase::Run: _beginthreadex(...) "
                          L"failure, for Launch Thread[Run] errno:11"));
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(m_watch.Calls(Call::kAwaitAnswer), 0);
  EXPECT_EQ(m_server->Stop(), 0);
}

TEST_F(WebServerBaseTest, RunsAfterAThreadThatCouldNotBeStarted) {
  for (int i = 0; i < 3; ++i) {
    m_watch.Fail(Call::kBeginThread, EAGAIN);
    EXPECT_EQ(Run(), 0);
  }
  EXPECT_EQ(m_watch.OpenHandles(), 1u);  // the last started event
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(m_watch.OpenHandles(), 1u);  // the accept thread
}

TEST_F(WebServerBaseTest, AnAnsweredRunClosesTheStartedEvent) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(m_watch.OpenHandles(), 1u);
    EXPECT_EQ(m_server->Stop(), 1);
    EXPECT_EQ(m_watch.OpenInAll(), 0u);
  }
}

TEST_F(WebServerBaseTest, APortInUseIsReportedAndNothingListens) {
  const OccupiedPort occupied;
  EXPECT_EQ(m_server->Run(occupied.Port(), 0, INADDR_LOOPBACK), 1);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(L"Info WebServerBase::Run: Starting server on port " +
                              std::to_wstring(occupied.Port()),
                          L"Error WebServerBase::_AcceptThread: AcceptThread: "
                          L"bind(...) failure. GetLastError:10048"));
}

TEST_F(WebServerBaseTest, TheSamePortCanBeListenedOnAgain) {
  EXPECT_EQ(Run(), 1);
  const uint16_t port = m_watch.Port();
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_server->Run(port, 0, INADDR_LOOPBACK), 1);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_EQ(m_watch.Port(), port);
}

// A thread that answers too late must still find a server, and must not leave
// a second listener behind.
class LateAcceptThread : public WebServerBaseTest {
 protected:
  LateAcceptThread() {
    m_watch.Before(Call::kStartup, [this](uint64_t) { m_gate.Pass(); });
    m_watch.Fail(Call::kAwaitAnswer, 0);
  }
  ~LateAcceptThread() override { m_gate.Open(); }

  Gate m_gate;
};

TEST_F(LateAcceptThread, IsReportedAfterThirtySeconds) {
  EXPECT_EQ(Run(), 0);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(m_watch.Calls(Call::kAwaitAnswer), 1);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting, kNoAnswer));
  EXPECT_EQ(m_watch.OpenHandles(), 1u);  // the accept thread
  m_gate.Open();
}

TEST_F(LateAcceptThread, KeepsTheNextRunFromStartingAnother) {
  EXPECT_EQ(Run(), 0);
  m_watch.Fail(Call::kAwaitEnd, 0);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(m_watch.ThreadsBegun(), 1u);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting, kNoAnswer, kStarting, kNoAnswer));
  m_gate.Open();
}

TEST_F(LateAcceptThread, ListensOnceItComesRound) {
  Gate listening;
  m_watch.Before(Call::kWait, [&](uint64_t) { listening.Pass(); });
  EXPECT_EQ(Run(), 0);
  m_gate.Open();
  ASSERT_TRUE(listening.SomebodyCame());
  listening.Open();
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(Run(), 1);
}

TEST_F(LateAcceptThread, IsKilledWhenTheServerGoes) {
  EXPECT_EQ(Run(), 0);
  ASSERT_TRUE(m_gate.SomebodyCame());
  m_server.reset();
  EXPECT_THAT(m_watch.Terminations(), ElementsAre(kFailedExit));
  EXPECT_TRUE(m_watch.ThreadEnds(0, kSoonMs));
}

TEST_F(LateAcceptThread, IsStoppedIfItListensByTheTimeTheServerGoes) {
  Gate listening;
  m_watch.Before(Call::kWait, [&](uint64_t) { listening.Pass(); });
  EXPECT_EQ(Run(), 0);
  m_watch.Before(Call::kAwaitEnd, [&](uint64_t) {
    m_gate.Open();
    EXPECT_TRUE(listening.SomebodyCame());
    listening.Open();
  });
  m_watch.Fail(Call::kAwaitEnd, 0);
  m_server.reset();
  EXPECT_THAT(m_watch.Terminations(), IsEmpty());
  EXPECT_TRUE(m_watch.ThreadEnds(0, kSoonMs));
}

// An accept thread that ignores the shutdown event.
class StuckAcceptThread : public WebServerBaseTest {
 protected:
  void GetStuck() {
    ASSERT_EQ(Run(), 1);
    m_watch.Before(Call::kAccept, [this](uint64_t) { m_gate.Pass(); });
    const LoopbackClient client(m_watch.Port());
    ASSERT_TRUE(m_gate.SomebodyCame());
  }
  ~StuckAcceptThread() override { m_gate.Open(); }

  Gate m_gate;
};

TEST_F(StuckAcceptThread, IsTerminatedAfterOneSecond) {
  GetStuck();
  const DWORD start = ::GetTickCount();
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_GE(::GetTickCount() - start, 990u);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_THAT(m_watch.Terminations(), ElementsAre(kFailedExit));
  EXPECT_EQ(m_watch.ExitCode(0), kFailedExit);
  EXPECT_EQ(m_watch.OpenInAll(), 0u);
}

TEST_F(StuckAcceptThread, LeavesItsPortFree) {
  GetStuck();
  const uint16_t port = m_watch.Port();
  m_watch.Fail(Call::kAwaitEnd, 0);
  EXPECT_EQ(m_server->Stop(), 0);
  m_watch.Before(Call::kAccept, nullptr);
  EXPECT_EQ(m_server->Run(port, 0, INADDR_LOOPBACK), 1);
  EXPECT_TRUE(m_server->IsRunning());
  const LoopbackClient client(port);
  EXPECT_TRUE(m_server->WaitForClients(1));
  EXPECT_EQ(m_server->Stop(), 1);
}

}  // namespace
