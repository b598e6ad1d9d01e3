// Whole: extensions that break their word, seen by clients.
#include <gmock/gmock.h>

#include <list>
#include <thread>

#include "test/whole/routing_fixture.h"

namespace {

using kova::test::Ask;
using kova::test::DemoPrinter;
using kova::test::ExtensionGate;
using kova::test::Pattern;
using kova::test::RoutingFixture;
using kova::test::TestClient;
using kova::test::TestExtension;

class MisbehavingExtensionTest : public RoutingFixture {};

// What an extension leaves unwritten is nobody else's data.
TEST_F(MisbehavingExtensionTest, BytesItClaimsAndDoesNotCopyAreZero) {
  for (const size_t claimed :
       {size_t{1000}, size_t{50000}, size_t{3000000}, size_t{6000000}}) {
    // Something for the heap to remember.
    const std::string bytes = "bytes-" + std::to_string(claimed);
    ASSERT_EQ(Ask(Port(), Get(bytes)), Pattern(claimed));
    const std::string request = Get("claims-" + std::to_string(claimed));
    TestClient client(Port());
    ASSERT_TRUE(client.Send(request));
    std::string expected = Echo(client, request);
    expected.resize(claimed, '\0');
    EXPECT_TRUE(client.ReceiveAll() == expected) << claimed;
  }
  EXPECT_EQ(m_extension.Record().live, 0);
}

TEST_F(MisbehavingExtensionTest, OneThatHangsHoldsNoneOfTwentyUp) {
  ExtensionGate gate(m_extension);
  TestClient stuck(Port());
  ASSERT_TRUE(stuck.Send(Get("wait")));
  ASSERT_TRUE(gate.WaitForArrival());
  std::list<TestClient> clients;
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(clients.emplace_back(Port()).Send(Get()));
  }
  for (TestClient& client : clients) {
    EXPECT_EQ(client.ReceiveAll(), Echo(client, Get()));
  }
  ExpectBadRequest("GET / HTTP/1.1\r\n\r\n");
  EXPECT_TRUE(stuck.StaysQuiet(0));
  gate.Open();
  EXPECT_EQ(stuck.ReceiveAll(), Echo(stuck, Get("wait")));
}

TEST_F(MisbehavingExtensionTest, SlowOnesDelayOtherPrintersUntilTheyAreReady) {
  TestExtension slow(L"no_restart");
  ASSERT_TRUE(slow.IsLoaded());
  DemoPrinter printer(L"KOVA slow");
  ASSERT_TRUE(printer.SetDriverPackage(slow.Folder()));
  ExtensionGate gate(slow);
  slow.Record().initializeGate = slow.Record().gate;
  TestClient first(Port());
  const std::string request = "GET /?printer=KOVA+slow HTTP/1.1\r\n\r\n";
  ASSERT_TRUE(first.Send(request));
  ASSERT_TRUE(gate.WaitForArrival());
  TestClient other(Port());
  ASSERT_TRUE(other.Send(Get()));
  // No extension is needed for this one.
  ExpectBadRequest("GET / HTTP/1.1\r\n\r\n");
  EXPECT_TRUE(other.StaysQuiet(0));
  gate.Open();
  EXPECT_EQ(first.ReceiveAll(), Echo(first, request));
  EXPECT_EQ(other.ReceiveAll(), Echo(other, Get()));
}

}  // namespace
