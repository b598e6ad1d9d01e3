// Whole: thousands of starts, stops and restarts, and a process that ends
// without a stop. KOVA_LONG in the environment asks for the full counts.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "test/crash/crash_run.h"
#include "test/support/process_counts.h"
#include "test/whole/rounds.h"
#include "test/whole/routing_fixture.h"

namespace {

using kova::test::Ask;
using kova::test::Rounds;
using kova::test::RoutingFixture;
using kova::test::ServerFixture;
using kova::test::TestClient;

constexpr uint64_t kMemorySlack = uint64_t{2} << 20;
constexpr size_t kHandleSlack = 4;
constexpr DWORD kHostExitCode = 7;

struct Holdings {
  size_t handles = kova::test::CountHandles();
  size_t threads = kova::test::CountThreads();
  uint64_t privateBytes = kova::test::CountPrivateBytes();
};

void ExpectNoMore(const Holdings& before, const Holdings& after) {
  EXPECT_LE(after.handles, before.handles + kHandleSlack);
  // The restart thread ends behind the stop.
  EXPECT_TRUE(kova::test::WaitForThreads(before.threads,
                                         kova::test::kClientPatienceMs));
  EXPECT_LE(after.privateBytes, before.privateBytes + kMemorySlack);
}

TEST(LongLifeTest, StartsAndStopsStayFlat) {
  ServerFixture server;
  ASSERT_TRUE(server.IsLoaded());
  const int rounds = Rounds(300, 10000);
  const auto run = [&server](int count) {
    for (int i = 0; i < count; ++i) {
      server.Start();
      if (i % 100 == 0) {
        EXPECT_NE(Ask(server.Port(), "GET / HTTP/1.1\r\n\r\n"), "");
      }
      server.Stop();
    }
  };
  run(rounds / 20);
  const Holdings first;
  run(rounds / 2 - rounds / 20);
  const Holdings middle;
  run(rounds - rounds / 2);
  const Holdings last;
  ExpectNoMore(first, middle);
  ExpectNoMore(middle, last);
}

class RestartLoadTest : public RoutingFixture {
 protected:
  // A client without pause: an answer is whole or does not come at all.
  void Load() {
    while (!m_done) {
      TestClient client(Port());
      // While nobody listens, a client may come from the very port that it
      // goes to, and is connected with itself.
      if (client.LocalPort() == Port()) continue;
      if (!client.IsConnected() || !client.Send(Get())) continue;
      const std::string expected = Echo(client, Get());
      const std::string answer = client.ReceiveAll();
      if (answer == expected) {
        ++m_whole;
      } else if (!answer.empty() && !expected.starts_with(answer)) {
        ++m_wrong;
      }
    }
  }

  std::atomic<bool> m_done{false};
  std::atomic<int> m_whole{0};
  std::atomic<int> m_wrong{0};
};

TEST_F(RestartLoadTest, EightThreadsRestartItUnderSixtyFourClients) {
  ExpectEcho(Get());
  const int signals = Rounds(5, 100);
  std::vector<std::thread> clients;
  for (int i = 0; i < 64; ++i) clients.emplace_back([this] { Load(); });
  std::vector<std::thread> signallers;
  for (int i = 0; i < 8; ++i) {
    signallers.emplace_back([&] {
      for (int signal = 0; signal < signals; ++signal) {
        m_extension.Record().restart();
        // Between two signals a client gets through, unless one that was
        // connected with itself held the port when the server came back.
        const int before = m_whole;
        for (int i = 0; i < 1000 && m_whole == before; ++i) ::Sleep(1);
      }
    });
  }
  for (std::thread& thread : signallers) thread.join();
  m_done = true;
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(m_wrong, 0);
  m_server.Stop();
  m_server.Start();
  ExpectEcho(Get());
  EXPECT_EQ(m_extension.Record().live, 0);
}

TEST(ProcessExitTest, NeedsNoStop) {
  const kova::test::DumpWatch dumps;
  for (int round = 0; round < Rounds(2, 30); ++round) {
    EXPECT_EQ(kova::test::RunToEnd(L"exit_host.exe", L""), kHostExitCode);
  }
  EXPECT_TRUE(dumps.NewDumps().empty());
}

}  // namespace
