// Patched: starting and stopping the listening server.
#include <atomic>
#include <cerrno>
#include <thread>

#include "base/kept_blocks.h"
#include "test/net/gate.h"
#include "test/net/listener_fixture.h"
#include "test/support/import_patch.h"
#include "test/support/watched_heap.h"

namespace {

using kova::UniqueSocket;
using kova::test::Call;
using kova::test::Gate;
using kova::test::ImportPatch;
using kova::test::kInfoMask;
using kova::test::kSoonMs;
using kova::test::ServerTest;
using kova::test::TestClient;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD kFailedExit = 4660;
constexpr uint32_t kDetailInfo = 0x10000000;
constexpr wchar_t kStarting[] =
    L"Info WebServerBase::Run: Starting server on port 0";
constexpr wchar_t kNoAnswer[] =
    L"Error WebServerBase::Run: Run: Unable to get response from Accept "
    L"Thread within specified Timeout. Timeout:30000";

class ListenerTest : public ServerTest {
 protected:
  ListenerTest() : ServerTest(kInfoMask | kDetailInfo) {}
};

// A socket that listens on a port which nobody else may take.
class OccupiedPort {
 public:
  OccupiedPort() : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    const BOOL exclusive = TRUE;
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                 reinterpret_cast<const char*>(&exclusive), sizeof(exclusive));
    sockaddr_in address = kova::test::LoopbackAddress(0);
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

TEST_F(ListenerTest, StartsStopped) {
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_THAT(m_log.Lines(), IsEmpty());
}

TEST_F(ListenerTest, ListensFromRunToStop) {
  EXPECT_EQ(Run(), 1);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_TRUE(TestClient(m_windows.Port()).IsConnected());
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_FALSE(TestClient(m_windows.Port()).IsConnected());
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting));
}

TEST_F(ListenerTest, AStopFreesTheBlocksThatAreKept) {
  EXPECT_EQ(Run(), 1);
  kova::GiveBlockBack(kova::TakeZeroedBlock(kova::kLeastKeptBytes));
  m_server->Stop();
  const kova::test::WatchedHeap heap;
  kova::GiveBlockBack(kova::TakeZeroedBlock(kova::kLeastKeptBytes));
  EXPECT_EQ(heap.ZeroedCalls(), 1u);
  kova::FreeKeptBlocks();
}

TEST_F(ListenerTest, ASecondRunIsRefusedAndChangesNothing) {
  EXPECT_EQ(Run(), 1);
  const uint16_t port = m_windows.Port();
  EXPECT_EQ(m_server->Run(1, 0, 0), 0);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting,
                          L"DetailInfo WebServerBase::Run: Server is already "
                          L"running"));
  EXPECT_EQ(m_windows.ThreadsBegun(), 1u);
  EXPECT_TRUE(TestClient(port).IsConnected());
}

TEST_F(ListenerTest, ReportsAThreadThatCannotBeStarted) {
  m_windows.Fail(Call::kBeginThread, EAGAIN);
  EXPECT_EQ(Run(), 0);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting,
                          L"Error WebServerBase::Run: _beginthreadex(...) "
                          L"failure, for Launch Thread[Run] errno:11"));
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(m_windows.Calls(Call::kAwaitAnswer), 0);
  EXPECT_EQ(m_server->Stop(), 0);
}

TEST_F(ListenerTest, RunsAfterAThreadThatCouldNotBeStarted) {
  for (int i = 0; i < 3; ++i) {
    m_windows.Fail(Call::kBeginThread, EAGAIN);
    EXPECT_EQ(Run(), 0);
  }
  EXPECT_EQ(m_windows.OpenHandles(), 1u);  // the last started event
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(m_windows.OpenHandles(), 1u);  // the accept thread
}

TEST_F(ListenerTest, AnAnsweredRunClosesTheStartedEvent) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(m_windows.OpenHandles(), 1u);
    EXPECT_EQ(m_server->Stop(), 1);
    EXPECT_EQ(m_windows.OpenInAll(), 0u);
  }
}

TEST_F(ListenerTest, APortInUseIsReportedAndNothingListens) {
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

TEST_F(ListenerTest, TheSamePortCanBeListenedOnAgain) {
  EXPECT_EQ(Run(), 1);
  const uint16_t port = m_windows.Port();
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_server->Run(port, 0, INADDR_LOOPBACK), 1);
  EXPECT_TRUE(m_server->IsRunning());
  EXPECT_EQ(m_windows.Port(), port);
}

// A thread that answers too late must still find a server, and must not leave
// a second listener behind.
class LateAcceptThread : public ListenerTest {
 protected:
  LateAcceptThread() {
    m_windows.Before(Call::kStartup, [this](uint64_t) {
      // The first session is opened by Run() itself.
      if (m_windows.Calls(Call::kStartup) == 2) m_gate.Pass();
    });
    m_windows.Fail(Call::kAwaitAnswer, 0);
  }
  ~LateAcceptThread() override { m_gate.Open(); }

  Gate m_gate;
};

TEST_F(LateAcceptThread, IsReportedAfterThirtySeconds) {
  EXPECT_EQ(Run(), 0);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_EQ(m_windows.Calls(Call::kAwaitAnswer), 1);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kStarting, kNoAnswer));
  EXPECT_EQ(m_windows.OpenHandles(), 1u);  // the accept thread
  m_gate.Open();
}

TEST_F(LateAcceptThread, KeepsTheNextRunFromStartingAnother) {
  EXPECT_EQ(Run(), 0);
  m_windows.Fail(Call::kAwaitEnd, 0);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(m_windows.ThreadsBegun(), 1u);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kStarting, kNoAnswer, kStarting, kNoAnswer));
  m_gate.Open();
}

TEST_F(LateAcceptThread, ListensOnceItComesRound) {
  Gate listening;
  m_windows.Before(Call::kWait, [&](uint64_t) { listening.Pass(); });
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
  EXPECT_THAT(m_windows.Terminations(), ElementsAre(kFailedExit));
  EXPECT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
}

TEST_F(LateAcceptThread, IsStoppedIfItListensByTheTimeTheServerGoes) {
  Gate listening;
  m_windows.Before(Call::kWait, [&](uint64_t) { listening.Pass(); });
  EXPECT_EQ(Run(), 0);
  m_windows.Before(Call::kAwaitEnd, [&](uint64_t) {
    m_gate.Open();
    EXPECT_TRUE(listening.SomebodyCame());
    listening.Open();
  });
  m_windows.Fail(Call::kAwaitEnd, 0);
  m_server.reset();
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  EXPECT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
}

// An accept thread that ignores the shutdown event.
class StuckAcceptThread : public ListenerTest {
 protected:
  void GetStuck() {
    ASSERT_EQ(Run(), 1);
    m_windows.Before(Call::kAccept, [this](uint64_t) { m_gate.Pass(); });
    TestClient client(m_windows.Port());
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
  EXPECT_THAT(m_windows.Terminations(), ElementsAre(kFailedExit));
  EXPECT_EQ(m_windows.ExitCode(0), kFailedExit);
  // For its end, and, killed, for its being gone.
  EXPECT_EQ(m_windows.Calls(Call::kAwaitEnd), 2);
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

TEST_F(StuckAcceptThread, LeavesItsPortFree) {
  GetStuck();
  const uint16_t port = m_windows.Port();
  m_windows.Fail(Call::kAwaitEnd, 0);
  EXPECT_EQ(m_server->Stop(), 0);
  m_windows.Before(Call::kAccept, nullptr);
  EXPECT_EQ(m_server->Run(port, 0, INADDR_LOOPBACK), 1);
  EXPECT_TRUE(m_server->IsRunning());
  TestClient client(port);
  EXPECT_TRUE(m_server->WaitForClients(1));
  EXPECT_EQ(m_server->Stop(), 1);
}

const auto g_reallyTerminate = &::TerminateThread;
HANDLE g_terminated;
BOOL WINAPI TerminateLater(HANDLE thread, DWORD /*exitCode*/) {
  g_terminated = thread;
  return TRUE;
}

// As Windows does: the call only asks for the thread's end, which comes behind
// it. What the thread uses must not be closed before.
TEST_F(StuckAcceptThread, IsWaitedForWhereItGoesOnBehindTheCallThatKillsIt) {
  GetStuck();
  g_terminated = nullptr;
  const ImportPatch<decltype(::TerminateThread)> patch(
      nullptr, "TerminateThread", &TerminateLater);
  m_windows.Before(Call::kAwaitEnd, [](uint64_t) {
    if (g_terminated != nullptr) g_reallyTerminate(g_terminated, kFailedExit);
  });
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_EQ(m_windows.ExitCode(0), kFailedExit);
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

// An accept thread that is killed while it hands a connection over.
class KilledInHandover : public ListenerTest {
 protected:
  ~KilledInHandover() override { m_gate.Open(); }

  // Kills it before the n-th call of the kind.
  void KillBefore(Call call, int nth) {
    m_windows.Before(call, [this, call, nth](uint64_t) {
      if (m_windows.Calls(call) == nth) m_gate.Pass();
    });
    ASSERT_EQ(Run(), 1);
    m_client = std::make_unique<TestClient>(m_windows.Port());
    ASSERT_TRUE(m_gate.SomebodyCame());
    m_windows.Fail(Call::kAwaitEnd, 0);
    EXPECT_EQ(m_server->Stop(), 0);
    EXPECT_THAT(m_windows.Terminations(), ElementsAre(kFailedExit));
  }
  void ExpectNothingLeft() {
    EXPECT_EQ(m_client->ReceiveAll(), "");
    EXPECT_TRUE(m_windows.AllThreadsEnd(kSoonMs));
    EXPECT_EQ(m_windows.OpenInAll(), 0u);
    // Nobody is waited for at the next stop.
    const int looks = m_windows.Calls(Call::kLookAgain);
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(m_server->Stop(), 1);
    EXPECT_EQ(m_windows.Calls(Call::kLookAgain), looks);
  }

  Gate m_gate;
  std::unique_ptr<TestClient> m_client;
};

TEST_F(KilledInHandover, BeforeThereIsAThreadLosesNoRecordAndNoSocket) {
  KillBefore(Call::kBeginThread, 2);
  EXPECT_EQ(m_windows.ThreadsBegun(), 1u);
  ExpectNothingLeft();
}

TEST_F(KilledInHandover, BeforeTheThreadRunsLetsItRunToItsEnd) {
  KillBefore(Call::kResumeThread, 1);
  EXPECT_EQ(m_windows.ThreadsBegun(), 2u);
  EXPECT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
  ExpectNothingLeft();
}

Gate* g_addressGate = nullptr;
INT WSAAPI WaitAtGate(LPSOCKADDR, DWORD, LPWSAPROTOCOL_INFOW, LPWSTR, LPDWORD) {
  g_addressGate->Pass();
  return SOCKET_ERROR;
}

TEST_F(KilledInHandover, BeforeThereIsARecordClosesTheSocket) {
  const ImportPatch<decltype(::WSAAddressToStringW)> patch(
      nullptr, "WSAAddressToStringW", &WaitAtGate);
  g_addressGate = &m_gate;
  ASSERT_EQ(Run(), 1);
  m_client = std::make_unique<TestClient>(m_windows.Port());
  ASSERT_TRUE(m_gate.SomebodyCame());
  m_windows.Fail(Call::kAwaitEnd, 0);
  EXPECT_EQ(m_server->Stop(), 0);
  EXPECT_THAT(m_windows.Terminations(), ElementsAre(kFailedExit));
  ExpectNothingLeft();
}

// What the thread's record still refers to is not freed under its starter.
TEST_F(ListenerTest, AConnectionThatEndsAtOnceAwaitsItsStarter) {
  Gate starter;
  ASSERT_EQ(Run(), 1);
  static Gate* gate;
  gate = &starter;
  // The calling convention of Windows' functions is that of all.
  using Resume = DWORD(HANDLE);
  static Resume* resume;
  const ImportPatch<Resume> patch(
      nullptr, "ResumeThread", +[](HANDLE thread) {
        const DWORD count = resume(thread);
        gate->Pass();
        return count;
      });
  resume = patch.Original();
  auto client = std::make_unique<TestClient>(m_windows.Port());
  ASSERT_TRUE(starter.SomebodyCame());
  client->Close();
  EXPECT_FALSE(m_windows.ThreadEnds(1, 100));
  starter.Open();
  EXPECT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
}

struct Seen {
  std::atomic<int> backlog{0};
  std::atomic<long> listenerBits{0};
  std::atomic<int> inheritable{0};
  std::atomic<int> sockets{0};
};
Seen* g_seen = nullptr;

// Notes what the listening server asks of Winsock; everything is real.
class ListenerCalls : public ListenerTest {
 protected:
  ListenerCalls() { g_seen = &m_seen; }
  ~ListenerCalls() override { g_seen = nullptr; }

  static int WSAAPI Listen(SOCKET socket, int backlog) {
    g_seen->backlog = backlog;
    Inspect(socket);
    return s_listen(socket, backlog);
  }
  static int WSAAPI Select(SOCKET socket, WSAEVENT event, long bits) {
    if (g_seen->listenerBits == 0) g_seen->listenerBits = bits;
    Inspect(socket);
    return s_select(socket, event, bits);
  }
  static void Inspect(SOCKET socket) {
    DWORD flags = 0;
    ++g_seen->sockets;
    if (!::GetHandleInformation(reinterpret_cast<HANDLE>(socket), &flags) ||
        (flags & HANDLE_FLAG_INHERIT) != 0) {
      ++g_seen->inheritable;
    }
  }

  Seen m_seen;
  const ImportPatch<decltype(Listen)> m_listen{nullptr, "listen", &Listen};
  const ImportPatch<decltype(Select)> m_select{nullptr, "WSAEventSelect",
                                               &Select};
  static inline decltype(Listen)* s_listen;
  static inline decltype(Select)* s_select;

  void SetUp() override {
    s_listen = m_listen.Original();
    s_select = m_select.Original();
  }
};

TEST_F(ListenerCalls, AskForTheLongestQueueAndForNewcomersAlone) {
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(m_seen.backlog, 0x7FFFFFFF);
  EXPECT_EQ(m_seen.listenerBits, FD_ACCEPT);
}

TEST_F(ListenerCalls, KeepEverySocketFromChildPrograms) {
  EXPECT_EQ(Run(), 1);
  TestClient client(m_windows.Port());
  EXPECT_TRUE(client.Send("x."));
  EXPECT_NE(client.ReceiveAll(), "");
  EXPECT_GE(m_seen.sockets, 3);  // listening twice, connected
  EXPECT_EQ(m_seen.inheritable, 0);
}

// Run() goes on once it is answered; nothing may be open then.
TEST_F(ListenerTest, AFailedAcceptThreadCleansUpBeforeItAnswers) {
  m_windows.Fail(Call::kBind, WSAEADDRINUSE);
  Gate cleanup;
  m_windows.Before(Call::kCleanup, [&](uint64_t) { cleanup.Pass(); });
  std::atomic<bool> answered{false};
  std::thread runner([&] {
    EXPECT_EQ(Run(), 1);
    answered = true;
  });
  EXPECT_TRUE(cleanup.SomebodyCame());
  EXPECT_EQ(m_windows.OpenSockets(), 0u);
  EXPECT_FALSE(answered);
  cleanup.Open();
  runner.join();
}

TEST_F(ListenerTest, OpensItsLastingSessionBeforeItListens) {
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kStartup), 2);
  TestClient client(m_windows.Port());
  EXPECT_TRUE(client.Send("x."));
  EXPECT_NE(client.ReceiveAll(), "");
  EXPECT_EQ(m_windows.Calls(Call::kStartup), 2);
}

}  // namespace
