// Whole: an extension that never returns. A program of its own, since the
// library stays loaded after it has had to end a thread by force.
#include <gmock/gmock.h>

#include "test/support/process_counts.h"
#include "test/whole/routing_fixture.h"

namespace {

using kova::test::ExtensionGate;
using kova::test::RoutingFixture;
using kova::test::TestClient;

constexpr uint64_t kGraceMs = 5000;
constexpr uint64_t kMostMs = 9000;

class StuckExtensionTest : public RoutingFixture {};

TEST_F(StuckExtensionTest, CostsAStopItsGraceTimeAndTheHostNothing) {
  const size_t threads = kova::test::CountThreads();
  ExpectEcho(Get());
  ExtensionGate gate(m_extension);
  TestClient stuck(Port());
  ASSERT_TRUE(stuck.Send(Get("wait")));
  ASSERT_TRUE(gate.WaitForArrival());
  const uint64_t startMs = ::GetTickCount64();
  m_server.Stop();
  const uint64_t stopMs = ::GetTickCount64() - startMs;
  EXPECT_GE(stopMs, kGraceMs);
  EXPECT_LT(stopMs, kMostMs);
  EXPECT_EQ(stuck.ReceiveAll(), "");
  EXPECT_TRUE(stuck.ClosedByPeer());
  m_server.Start();
  ExpectEcho(Get());
  EXPECT_TRUE(
      kova::test::WaitForThreads(threads, kova::test::kClientPatienceMs));
}

}  // namespace
