// Patched: starts, stops and connections meeting. The patches only count.
#include <algorithm>
#include <atomic>
#include <thread>

#include "test/net/listener_fixture.h"

namespace {

using kova::test::kSoonMs;
using kova::test::ServerTest;
using kova::test::TestClient;
using testing::IsEmpty;

constexpr int kRounds = 200;

// Connects over and over to whatever port is listened on: some clients leave
// at once, some send a request and wait for the answer or the end.
class Visitors {
 public:
  explicit Visitors(const kova::test::WindowsCalls& windows)
      : m_windows(windows),
        m_first(&Visitors::Visit, this),
        m_second(&Visitors::Visit, this) {}
  ~Visitors() {
    m_done = true;
    m_first.join();
    m_second.join();
  }
  [[nodiscard]] int Connected() const { return m_connected; }

 private:
  void Visit() {
    for (int visit = 0; !m_done; ++visit) {
      const uint16_t port = m_windows.Port();
      if (port == 0) continue;
      TestClient client(port);
      if (!client.IsConnected()) continue;
      ++m_connected;
      if (visit % 3 == 0) continue;
      client.Send("x.");
      if (visit % 3 == 1) (void)client.ReceiveAll();
    }
  }

  const kova::test::WindowsCalls& m_windows;
  std::atomic<bool> m_done{false};
  std::atomic<int> m_connected{0};
  std::thread m_first;
  std::thread m_second;
};

class RestartTest : public ServerTest {};

// Threads are counted by duplicates of their handles, taken where they begin.
TEST_F(RestartTest, LeavesNoThreadAndNoSocketWhileClientsComeAndGo) {
  const Visitors visitors(m_windows);
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_EQ(Run(), 1) << round;
    ASSERT_TRUE(m_server->IsRunning()) << round;
    const size_t clients = m_server->Clients().size();
    if (round % 2 == 0) ASSERT_TRUE(m_server->WaitForClients(clients + 1));
    ASSERT_EQ(m_server->Stop(), 1) << round;
    ASSERT_TRUE(m_windows.AllThreadsEnd(kSoonMs)) << round;
    ASSERT_EQ(m_windows.OpenInAll(), 0u) << round;
  }
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  EXPECT_GE(visitors.Connected(), kRounds / 2);
}

TEST_F(RestartTest, RunAndStopFromTwoThreadsExcludeEachOther) {
  const Visitors visitors(m_windows);
  std::atomic<int> started{0};
  std::atomic<bool> done{false};
  std::thread starter([&] {
    while (started < kRounds) started += Run();
    done = true;
  });
  int stopped = 0;
  while (!done) stopped += m_server->Stop();
  starter.join();
  stopped += m_server->Stop();
  EXPECT_EQ(started, stopped);
  EXPECT_FALSE(m_server->IsRunning());
  EXPECT_THAT(m_windows.Terminations(), IsEmpty());
  EXPECT_TRUE(m_windows.AllThreadsEnd(kSoonMs));
  EXPECT_EQ(m_windows.OpenInAll(), 0u);
}

}  // namespace
