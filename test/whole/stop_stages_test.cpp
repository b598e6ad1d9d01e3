// Whole: a stop at every stage of a connection.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "test/support/process_counts.h"
#include "test/whole/rounds.h"
#include "test/whole/routing_fixture.h"

namespace {

using kova::test::CountHandles;
using kova::test::CountThreads;
using kova::test::ExtensionGate;
using kova::test::kClientPatienceMs;
using kova::test::kEightMiB;
using kova::test::Pattern;
using kova::test::RoutingFixture;
using kova::test::TestClient;
using kova::test::WaitForThreads;

// A connection that is told to end ends at once; a release looks for it every
// 100 ms, and ends by force after 5000 ms.
constexpr uint64_t kPromptMs = 3000;
constexpr size_t kHandleSlack = 5;

class StopStagesTest : public RoutingFixture {
 protected:
  void ExpectServesAgain() {
    m_server.Start();
    ExpectEcho(Get());
    EXPECT_EQ(m_extension.Record().live, 0);
    EXPECT_EQ(m_extension.Count('?'), 0);
  }
  void KeepOpen(TestClient& client) {
    ASSERT_TRUE(client.Send(Get("keep")));
    const std::string expected = Echo(client, Get("keep"));
    ASSERT_EQ(client.Receive(expected.size()), expected);
  }
};

// The stop waits for the extension, which gets its response released.
TEST_F(StopStagesTest, InsideTheExtension) {
  ExtensionGate gate(m_extension);
  TestClient client(Port());
  ASSERT_TRUE(client.Send(Get("wait")));
  ASSERT_TRUE(gate.WaitForArrival());
  std::atomic<bool> isStopped{false};
  std::thread stop([&] {
    m_server.Stop();
    isStopped = true;
  });
  while (m_server.IsListening()) std::this_thread::yield();
  EXPECT_FALSE(isStopped);
  gate.Open();
  stop.join();
  (void)client.ReceiveAll();
  EXPECT_TRUE(client.ClosedByPeer());
  ExpectServesAgain();
}

TEST_F(StopStagesTest, AllAtOnceAndOftenLeaveNothingBehind) {
  const int rounds = kova::test::Rounds(12, 200);
  size_t threads = 0;
  size_t handles = 0;
  for (int round = 0; round < rounds; ++round) {
    {
      TestClient silent(Port());
      TestClient kept(Port());
      KeepOpen(kept);
      TestClient half(Port());
      SendIncomplete(half, "GET /?printer=KOVA+whole HTTP");
      TestClient slow(Port(), 4096);
      AskForMuch(slow);
      const uint64_t startMs = ::GetTickCount64();
      m_server.Stop();
      EXPECT_LT(::GetTickCount64() - startMs, kPromptMs);
      for (TestClient* client : {&silent, &kept, &half}) {
        EXPECT_EQ(client->ReceiveAll(), "");
        EXPECT_TRUE(client->ClosedByPeer());
      }
      const std::string begun = slow.ReceiveAll();
      EXPECT_TRUE(slow.ClosedByPeer());
      EXPECT_LT(begun.size(), kEightMiB);
      EXPECT_TRUE(begun == Pattern(begun.size()));
    }
    if (round == 2) {
      threads = CountThreads();
      handles = CountHandles();
    }
    if (round + 1 < rounds) m_server.Start();
  }
  EXPECT_TRUE(WaitForThreads(threads, kClientPatienceMs));
  EXPECT_LE(CountHandles(), handles + kHandleSlack);
  ExpectServesAgain();
}

}  // namespace
