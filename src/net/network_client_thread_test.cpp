// Patched: whole connections over this machine's own network. What is patched
// only counts, fails or holds back; sockets and threads are real.
#include <algorithm>
#include <atomic>
#include <thread>

#include "test/net/listener_fixture.h"

namespace {

using kova::test::Call;
using kova::test::kInfoMask;
using kova::test::kSoonMs;
using kova::test::ServerTest;
using kova::test::TestClient;
using testing::DoubleEq;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

constexpr char kRefusal[] = "HTTP/1.1 400";
constexpr wchar_t kLooping[] =
    L"DetailInfoE Network_ClientThread::Run: HTTPRequest::IsComplete returned "
    L"false, looping";

class ConnectionTest : public ServerTest {
 protected:
  ConnectionTest() : ServerTest(kInfoMask | 0x10) {}
  void SetUp() override { ASSERT_EQ(Run(), 1); }

  // Lines that equal `line`.
  [[nodiscard]] int Lines(const std::wstring& line) const {
    const auto lines = m_log.Lines();
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
  }
};

TEST_F(ConnectionTest, IsAnsweredAndClosed) {
  TestClient client(m_windows.Port());
  EXPECT_TRUE(client.Send("GET / HTTP/1.1\r\n\r\n."));
  const std::string answer = client.ReceiveAll();
  EXPECT_THAT(answer, StartsWith(kRefusal));
  ASSERT_TRUE(m_server->WaitForResponses(1));
  EXPECT_THAT(m_server->Sent(), ElementsAre(answer.size()));
  ASSERT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(1), 1u);
  EXPECT_THAT(m_server->KilobytesReceived(), DoubleEq(19 / 1024.0));
  EXPECT_THAT(m_server->KilobytesSent(), DoubleEq(answer.size() / 1024.0));
}

TEST_F(ConnectionTest, WaitsForTheLastSegment) {
  TestClient client(m_windows.Port());
  EXPECT_TRUE(client.Send("GET /"));
  EXPECT_TRUE(m_log.WaitFor(kLooping, kSoonMs));
  EXPECT_THAT(m_server->Sent(), IsEmpty());
  EXPECT_TRUE(client.Send(" HTTP/1.1."));
  EXPECT_THAT(client.ReceiveAll(), StartsWith(kRefusal));
  EXPECT_EQ(Lines(kLooping), 1);
}

TEST_F(ConnectionTest, EndsWhenThePeerCloses) {
  TestClient client(m_windows.Port());
  EXPECT_TRUE(client.Send("half"));
  EXPECT_TRUE(m_log.WaitFor(kLooping, kSoonMs));
  client.Close();
  EXPECT_TRUE(m_log.WaitFor(
      L"DetailInfoE Network_ClientThread::Run: FD_CLOSE recieved exiting",
      kSoonMs));
  ASSERT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(1), 1u);
  EXPECT_THAT(m_server->Sent(), IsEmpty());
}

TEST_F(ConnectionTest, MayBeSilentForItsTimeOrUntilTheStop) {
  std::atomic<uint64_t> patienceMs{0};
  m_windows.Before(Call::kWait, [&](uint64_t timeoutMs) {
    if (timeoutMs != WSA_INFINITE) patienceMs = timeoutMs;
  });
  TestClient client(m_windows.Port());
  while (patienceMs == 0) std::this_thread::yield();
  EXPECT_EQ(patienceMs, 300000u);
  EXPECT_EQ(m_server->Stop(), 1);
  EXPECT_EQ(client.ReceiveAll(), "");
  EXPECT_EQ(m_windows.ExitCode(1), 1u);
}

TEST_F(ConnectionTest, IsAnnouncedWithItsWholeAddress) {
  TestClient first(m_windows.Port());
  ASSERT_TRUE(m_server->WaitForClients(1));
  TestClient second(m_windows.Port());
  ASSERT_TRUE(m_server->WaitForClients(2));
  EXPECT_THAT(m_server->Clients(),
              ElementsAre(Pair(first.Address(), first.LocalPort()),
                          Pair(second.Address(), second.LocalPort())));
}

TEST_F(ConnectionTest, IsServedWhileAnotherIsIdle) {
  TestClient idle(m_windows.Port());
  ASSERT_TRUE(m_server->WaitForClients(1));
  for (int i = 0; i < 5; ++i) {
    TestClient client(m_windows.Port());
    EXPECT_TRUE(client.Send("x."));
    EXPECT_THAT(client.ReceiveAll(), StartsWith(kRefusal));
  }
  EXPECT_FALSE(m_windows.ThreadEnds(1, 0));
  EXPECT_THAT(m_server->KilobytesReceived(), DoubleEq(10 / 1024.0));
}

TEST_F(ConnectionTest, ClosesItsSocketAndEventsWhenItEnds) {
  TestClient client(m_windows.Port());
  EXPECT_TRUE(client.Send("x."));
  EXPECT_THAT(client.ReceiveAll(), StartsWith(kRefusal));
  ASSERT_TRUE(m_windows.ThreadEnds(1, kSoonMs));
  EXPECT_EQ(m_windows.OpenSockets(), 1u);
  EXPECT_EQ(m_windows.OpenEvents(), 2u);
  EXPECT_EQ(m_windows.OpenHandles(), 1u);
}

}  // namespace
