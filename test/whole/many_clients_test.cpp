// Whole: many clients at once, and restarts from inside.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "test/whole/routing_fixture.h"

namespace {

using kova::test::FreePort;
using kova::test::kClientPatienceMs;
using kova::test::RoutingFixture;
using kova::test::TestClient;

class ManyClientsTest : public RoutingFixture {
 protected:
  // Waits until the server listens on the port that the settings name.
  [[nodiscard]] bool WaitUntilListening() const {
    const uint64_t deadlineMs = ::GetTickCount64() + kClientPatienceMs;
    while (!m_server.IsListening()) {
      if (::GetTickCount64() > deadlineMs) return false;
      ::Sleep(5);
    }
    return true;
  }
};

TEST_F(ManyClientsTest, SixtyFourClientsAllGetTheirOwnAnswer) {
  constexpr int kClients = 64;
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kClients; ++i) {
    threads.emplace_back([&, i] {
      TestClient client(Port());
      const std::string number = "&client=" + std::to_string(i);
      const std::string first =
          "GET /?printer=KOVA+whole" + number + "&act=keep HTTP/1.1\r\n\r\n";
      const std::string second =
          "GET /?share=kovaWhole" + number + "&act=close HTTP/1.1\r\n\r\n";
      client.Send(first);
      const std::string expected = Echo(client, first);
      if (client.Receive(expected.size()) != expected) return;
      client.Send(second);
      if (client.ReceiveAll() == Echo(client, second, 1)) ++good;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, kClients);
  EXPECT_EQ(m_extension.Count('I'), 1);
  EXPECT_EQ(m_extension.Count('R'), 2 * kClients);
  EXPECT_EQ(m_extension.Count('?'), 0);
  EXPECT_EQ(m_extension.Record().live, 0);
}

TEST_F(ManyClientsTest, ARestartFromAHandlerIsAnsweredAndHappens) {
  ExpectEcho(Get());
  TestClient idle(Port());
  TestClient asking(Port());
  ASSERT_TRUE(asking.Send(Get("restart")));
  EXPECT_EQ(asking.ReceiveAll(), Echo(asking, Get("restart")));
  EXPECT_TRUE(m_capture.WaitFor(
      L"Info NetworkMonitor::ServerRestart: Restarting KOVA server...",
      kClientPatienceMs));
  EXPECT_EQ(idle.ReceiveAll(), "");
  EXPECT_TRUE(idle.ClosedByPeer());
  ASSERT_TRUE(
      m_capture.WaitFor(L"Info WebServerBase::Run: Starting server on port " +
                            std::to_wstring(Port()),
                        kClientPatienceMs));
  ASSERT_TRUE(WaitUntilListening());
  ExpectEcho(Get());
  EXPECT_EQ(m_extension.Trace(), "VSIHLCRHLCRHLCR");
}

TEST_F(ManyClientsTest, ARestartTakesTheSettingsOfNow) {
  const uint16_t former = Port();
  m_server.UsePort(FreePort());
  const std::string request = Get("restart");
  EXPECT_NE(kova::test::Ask(former, request), "");
  ASSERT_TRUE(WaitUntilListening());
  ExpectEcho(Get());
  EXPECT_FALSE(TestClient(former).IsConnected());
}

TEST_F(ManyClientsTest, ManyRestartsAtOnceLeaveAServer) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back(
        [&] { (void)kova::test::Ask(Port(), Get("restart")); });
  }
  for (std::thread& thread : threads) thread.join();
  // What is folded into one restart may still be under way here.
  m_server.Stop();
  m_server.Start();
  ExpectEcho(Get());
  EXPECT_EQ(m_extension.Record().live, 0);
}

TEST_F(ManyClientsTest, TheRestartRoutineDoesNothingWithoutAServer) {
  ExpectEcho(Get());
  m_server.Stop();
  m_extension.Record().restart();
  EXPECT_FALSE(m_server.IsListening());
  m_server.Start();
  ExpectEcho(Get());
}

}  // namespace
