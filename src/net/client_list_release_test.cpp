// Patched: how connections are started, told to end, and killed.
#include <atomic>
#include <cerrno>
#include <thread>

#include "test/net/gate.h"
#include "test/net/listener_fixture.h"
#include "test/support/import_patch.h"

namespace {

using kova::test::Call;
using kova::test::Gate;
using kova::test::ImportPatch;
using kova::test::kSoonMs;
using kova::test::ServerTest;
using kova::test::TestClient;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// Threads: 0 is the accept thread, 1 the first connection's.
class ReleaseClientsTest : public ServerTest {
 protected:
  ~ReleaseClientsTest() override { m_gate.Open(); }

  // Connects a client whose thread comes to the gate before its n-th call of
  // the kind, counted over the whole server.
  std::unique_ptr<TestClient> ConnectHeldBefore(Call call, int nth) {
    m_windows.Before(call, [this, call, nth](uint64_t) {
      if (m_windows.Calls(call) == nth) m_gate.Pass();
    });
    EXPECT_EQ(Run(), 1);
    auto client = std::make_unique<TestClient>(m_windows.Port());
    EXPECT_TRUE(m_gate.SomebodyCame());
    return client;
  }
  // The same for its first wait for socket events.
  std::unique_ptr<TestClient> ConnectHeldInItsLoop() {
    m_windows.Before(Call::kWait, [this](uint64_t timeoutMs) {
      if (timeoutMs != WSA_INFINITE) m_gate.Pass();
    });
    EXPECT_EQ(Run(), 1);
    auto client = std::make_unique<TestClient>(m_windows.Port());
    EXPECT_TRUE(m_gate.SomebodyCame());
    return client;
  }
  // Lets the held thread go at the given look, and come to its end.
  void OpenGateAtLook(int look) {
    m_windows.Before(Call::kLookAgain, [this, look](uint64_t) {
      if (m_windows.Calls(Call::kLookAgain) != look) return;
      m_gate.Open();
      EXPECT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
    });
  }
  void NeverOpenGate() {
    m_windows.Before(Call::kLookAgain, [](uint64_t) {});
  }

  Gate m_gate;
};

TEST_F(ReleaseClientsTest, AConnectionThatEndsAtOnceCostsOneLook) {
  EXPECT_EQ(Run(), 1);
  TestClient client(m_windows.Port());
  ASSERT_TRUE(m_server->WaitForClients(1));
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_LE(m_windows.Calls(Call::kLookAgain), 1);
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  EXPECT_EQ(client.ReceiveAll(), "");
}

TEST_F(ReleaseClientsTest, AConnectionThatEndsLaterIsSeenAtTheNextLook) {
  const auto client = ConnectHeldInItsLoop();
  OpenGateAtLook(7);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 7);
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  EXPECT_EQ(m_windows.ExitCode(1), 1u);
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

TEST_F(ReleaseClientsTest, AConnectionThatEndsAtTheLastLookIsNotKilled) {
  const auto client = ConnectHeldInItsLoop();
  OpenGateAtLook(50);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 50);
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
}

TEST_F(ReleaseClientsTest, AConnectionThatIgnoresItsStopEventIsKilled) {
  const auto client = ConnectHeldInItsLoop();
  NeverOpenGate();
  EXPECT_EQ(m_windows.OpenEvents(), 4u);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 50);
  EXPECT_THAT(m_windows.Terminations(), ElementsAre(0u));
  // One wait for the accept thread's end, one for that of the killed thread.
  EXPECT_EQ(m_windows.Calls(Call::kAwaitEnd), 2);
  EXPECT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(1), 0u);
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

// Whatever the number of threads, Windows gets one second to end them.
TEST_F(ReleaseClientsTest, KilledConnectionsShareTheTimeToBeGone) {
  const auto first = ConnectHeldInItsLoop();
  TestClient second(m_windows.Port());
  // Three waits of the accept thread, and one of each connection.
  while (m_windows.Calls(Call::kWait) < 5) std::this_thread::yield();
  NeverOpenGate();
  m_windows.Fail(Call::kAwaitEnd, 0, 1);  // the wait for the first one
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_THAT(m_windows.Terminations(), ElementsAre(0u, 0u));
  EXPECT_EQ(m_windows.Calls(Call::kAwaitEnd), 2);
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

// A connection whose peer never stops sending.
TEST_F(ReleaseClientsTest, AConnectionThatIsFloodedEndsByItself) {
  EXPECT_EQ(Run(), 1);
  TestClient client(m_windows.Port());
  std::atomic<bool> done{false};
  std::thread flood([&] {
    while (!done && client.Send("no end")) continue;
  });
  while (m_windows.Calls(Call::kEnumEvents) < 10) std::this_thread::yield();
  EXPECT_EQ(m_server->Stop(), 1);
  done = true;
  flood.join();
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
}

TEST_F(ReleaseClientsTest, AKilledConnectionLeavesAServerThatRunsAgain) {
  const auto client = ConnectHeldInItsLoop();
  NeverOpenGate();
  EXPECT_EQ(m_server->Stop(), 1);
  m_windows.Before(Call::kWait, nullptr);
  m_windows.Before(Call::kLookAgain, nullptr);
  EXPECT_EQ(Run(), 1);
  TestClient next(m_windows.Port());
  EXPECT_TRUE(next.Send("x."));
  EXPECT_THAT(next.ReceiveAll(), testing::StartsWith("HTTP/1.1 400"));
}

// Each of the server's threads raises its stack guarantee first of all, before
// a connection's thread registers.
class UnregisteredThread : public ReleaseClientsTest {
 protected:
  UnregisteredThread() {
    s_test = this;
    s_calls = 0;
  }

  std::unique_ptr<TestClient> Connect() {
    EXPECT_EQ(Run(), 1);
    auto client = std::make_unique<TestClient>(m_windows.Port());
    EXPECT_TRUE(m_gate.SomebodyCame());
    return client;
  }

 private:
  static WINBOOL WINAPI HoldSecondThread(PULONG bytes) {
    UnregisteredThread& test = *s_test;
    if (++s_calls == 2) test.m_gate.Pass();
    return test.m_patch.Original()(bytes);
  }

  static inline UnregisteredThread* s_test;
  static inline std::atomic<int> s_calls;
  const ImportPatch<decltype(HoldSecondThread)> m_patch{
      nullptr, "SetThreadStackGuarantee", &HoldSecondThread};
};

TEST_F(UnregisteredThread, IsWaitedForAndTurnedAway) {
  const auto client = Connect();
  OpenGateAtLook(5);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 5);
  EXPECT_EQ(m_windows.ExitCode(1), 0u);
  EXPECT_EQ(m_windows.Calls(Call::kCreateEvent), 2);  // the accept thread's
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
  EXPECT_EQ(client->ReceiveAll(), "");
}

TEST_F(UnregisteredThread, IsNotKilledAndMayOutliveItsServer) {
  const auto client = Connect();
  NeverOpenGate();
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 50);
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  m_server.reset();
  m_gate.Open();
  EXPECT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(1), 0u);
  EXPECT_EQ(client->ReceiveAll(), "");
}

// Only its second event is what a stop can signal.
TEST_F(ReleaseClientsTest, AThreadWithoutEventsIsToldToEndOnceItHasThem) {
  const auto client = ConnectHeldBefore(Call::kCreateEvent, 3);
  OpenGateAtLook(4);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 4);
  EXPECT_EQ(m_windows.ExitCode(1), 1u);
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

TEST_F(ReleaseClientsTest, AThreadWithoutItsStopEventIsToldToEndOnceItHasIt) {
  const auto client = ConnectHeldBefore(Call::kCreateEvent, 4);
  OpenGateAtLook(2);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 2);
  EXPECT_EQ(m_windows.ExitCode(1), 1u);
}

TEST_F(ReleaseClientsTest, AThreadThatIsSelectingEventsIsToldToEnd) {
  const auto client = ConnectHeldBefore(Call::kEventSelect, 2);
  OpenGateAtLook(2);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(m_windows.ExitCode(1), 1u);
}

TEST_F(ReleaseClientsTest, AThreadWithoutEventsThatHangsIsKilled) {
  const auto client = ConnectHeldBefore(Call::kCreateEvent, 3);
  NeverOpenGate();
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_THAT(m_windows.Terminations(), ElementsAre(0u));
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

TEST_F(ReleaseClientsTest, AllConnectionsAreReleased) {
  EXPECT_EQ(Run(), 1);
  std::vector<std::unique_ptr<TestClient>> clients;
  for (int i = 0; i < 20; ++i) {
    clients.push_back(std::make_unique<TestClient>(m_windows.Port()));
  }
  ASSERT_TRUE(m_server->WaitForClients(20));
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
  for (const auto& client : clients) EXPECT_EQ(client->ReceiveAll(), "");
}

// A connection that ends in its preparation: its n-th call fails.
struct Preparation {
  Call call;
  int callsBefore;
};

class ConnectionPreparation : public ServerTest,
                              public testing::WithParamInterface<Preparation> {
};

TEST_P(ConnectionPreparation, FailsForThatConnectionAlone) {
  EXPECT_EQ(Run(), 1);
  m_windows.Fail(GetParam().call, WSAENOBUFS, GetParam().callsBefore);
  TestClient refused(m_windows.Port());
  EXPECT_EQ(refused.ReceiveAll(), "");
  ASSERT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(1), 0u);
  EXPECT_EQ(m_windows.Calls(Call::kEnumEvents), 1);

  TestClient served(m_windows.Port());
  EXPECT_TRUE(served.Send("x."));
  EXPECT_EQ(served.ReceiveAll().substr(0, 12), "HTTP/1.1 400");
}

INSTANTIATE_TEST_SUITE_P(EachCall, ConnectionPreparation,
                         testing::Values(Preparation{Call::kCreateEvent, 0},
                                         Preparation{Call::kCreateEvent, 1},
                                         Preparation{Call::kEventSelect, 0}));

// A connection whose thread does not come to life.
class ConnectionStart : public ServerTest,
                        public testing::WithParamInterface<Call> {};

TEST_P(ConnectionStart, FailsForThatConnectionAlone) {
  EXPECT_EQ(Run(), 1);
  m_windows.Fail(GetParam(), EAGAIN);
  TestClient refused(m_windows.Port());
  EXPECT_EQ(refused.ReceiveAll(), "");
  EXPECT_THAT(m_server->Clients(),
              ElementsAre(Pair(refused.Address(), refused.LocalPort())));

  TestClient served(m_windows.Port());
  EXPECT_TRUE(served.Send("x."));
  EXPECT_EQ(served.ReceiveAll().substr(0, 12), "HTTP/1.1 400");
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_THAT(m_log.Lines(), ElementsAre(L"Info WebServerBase::Run: Starting "
                                         L"server on port 0"));
}

INSTANTIATE_TEST_SUITE_P(EachCall, ConnectionStart,
                         testing::Values(Call::kBeginThread,
                                         Call::kResumeThread));

}  // namespace
