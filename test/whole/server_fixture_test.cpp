// Whole: the scaffolding itself: a server that starts, answers and stops.
#include <gtest/gtest.h>

#include "test/support/server_fixture.h"
#include "test/support/test_client.h"

namespace {

using kova::test::Ask;
using kova::test::ServerFixture;

TEST(ServerFixtureTest, StartsAServerOnAPortOfItsOwnAndStopsIt) {
  ServerFixture server;
  ASSERT_TRUE(server.IsLoaded());
  EXPECT_FALSE(server.IsListening());
  server.Start();
  EXPECT_TRUE(server.IsListening());
  EXPECT_EQ(Ask(server.Port(), "GET / HTTP/1.1\r\n\r\n").substr(0, 24),
            "HTTP/1.1 400 Bad Request");
  server.Stop();
  EXPECT_FALSE(server.IsListening());
  EXPECT_TRUE(server.Unload());
}

TEST(ServerFixtureTest, LeavesTheSettingsAsTheyWere) {
  kova::test::ServerSettingsScope outer;
  ASSERT_TRUE(outer.SetPort(4660));
  const std::vector<uint8_t> before = {0x34, 0x12, 0, 0};
  {
    ServerFixture server;
    server.Start();
    EXPECT_NE(outer.Get(kova::test::kServerPort)->bytes, before);
  }
  EXPECT_EQ(outer.Get(kova::test::kServerPort)->bytes, before);
  EXPECT_FALSE(outer.Get(kova::test::kNetworkBidirectional).has_value());
}

}  // namespace
