// Whole: what clients of other habits, protocols and manners get, and what
// they leave behind.
#include <gmock/gmock.h>

#include <list>

#include "test/support/process_counts.h"
#include "test/whole/routing_fixture.h"

namespace {

using kova::test::CountHandles;
using kova::test::CountThreads;
using kova::test::kClientPatienceMs;
using kova::test::RoutingFixture;
using kova::test::TestClient;
using namespace std::string_literals;

constexpr DWORD kQuietMs = 20;
constexpr int kManyClients = 200;
// What Windows and Wine keep for the next thread or socket.
constexpr size_t kHandleSlack = 8;

class ClientKindsTest : public RoutingFixture {
 protected:
  static std::string Post(const std::string& headers, const std::string& body) {
    return "POST /?printer=KOVA+whole HTTP/1.1\r\n" + headers + "\r\n" + body;
  }
  // A connection's thread is the last thing that goes.
  [[nodiscard]] bool AreThreadsBack() const {
    return kova::test::WaitForThreads(m_quietThreads, kClientPatienceMs);
  }
  // Lets `visit` use one connection after another, then expects everything
  // back that these took.
  template <typename Visit>
  void ExpectNothingLeft(const Visit& visit) {
    visit();
    // Connections are accepted in order: all the others were before this one.
    ExpectEcho(Get());
    ASSERT_TRUE(AreThreadsBack());
    const size_t handles = CountHandles();
    for (int i = 0; i < kManyClients; ++i) visit();
    ExpectEcho(Get());
    EXPECT_TRUE(AreThreadsBack());
    EXPECT_LE(CountHandles(), handles + kHandleSlack);
  }

  void SetUp() override {
    RoutingFixture::SetUp();
    m_quietThreads = CountThreads();
  }

  size_t m_quietThreads = 0;
};

TEST_F(ClientKindsTest, ABodyThatIsHeldBackIsNotWaitedFor) {
  ExpectEcho(Post("Expect: 100-continue\r\nContent-Length: 5\r\n", ""));
  ExpectEcho(Post("Transfer-Encoding: chunked\r\n", ""));
}

TEST_F(ClientKindsTest, ChunksGoOverAsTheyCame) {
  ExpectEcho(Post("Transfer-Encoding: chunked\r\n", "5\r\nhello\r\n0\r\n\r\n"));
  // Nobody looks for the last chunk.
  ExpectEcho(Post("Transfer-Encoding: chunked\r\n", "5\r\nhel"));
}

TEST_F(ClientKindsTest, OldAndNewVersionsAreAnsweredAlike) {
  ExpectEcho("GET /?printer=KOVA+whole\n\n");
  ExpectEcho("GET /?printer=KOVA+whole HTTP/1.0\r\n\r\n");
  ExpectEcho("GET /?printer=KOVA+whole HTTP/9.9\r\n\r\n");
  ExpectBadRequest("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"s + "\0\0\0\4\0\0\0\0\0"s);
}

TEST_F(ClientKindsTest, AnEncryptedGreetingGetsNoAnswer) {
  // The start of a TLS handshake: record type, version, length; then a client
  // hello, whose length begins with a zero.
  const std::string hello = "\x16\x03\x01\x02\x00\x01\x00\x01\xFC\x03\x03\n\n"s;
  TestClient client(Port());
  SendIncomplete(client, hello);
  EXPECT_TRUE(client.StaysQuiet(kQuietMs));
  client.FinishSending();
  EXPECT_EQ(client.ReceiveAll(), "");
  EXPECT_TRUE(client.ClosedByPeer());
  EXPECT_FALSE(client.ResetByPeer());
}

TEST_F(ClientKindsTest, AClientThatHasFinishedSendingIsStillAnswered) {
  TestClient client(Port());
  ASSERT_TRUE(client.Send(Get()));
  client.FinishSending();
  EXPECT_EQ(client.ReceiveAll(), Echo(client, Get()));
  EXPECT_TRUE(client.ClosedByPeer());
  EXPECT_FALSE(client.ResetByPeer());
}

TEST_F(ClientKindsTest, AClientThatFinishesBeforeItBeginsIsClosed) {
  TestClient client(Port());
  client.FinishSending();
  EXPECT_EQ(client.ReceiveAll(), "");
  EXPECT_TRUE(client.ClosedByPeer());
  EXPECT_FALSE(client.ResetByPeer());
}

TEST_F(ClientKindsTest, ClientsThatGoAtOnceLeaveNothing) {
  ExpectNothingLeft([&] { TestClient(Port()).Close(); });
}

TEST_F(ClientKindsTest, ResetsLeaveNothing) {
  ExpectNothingLeft([&] { TestClient(Port()).Reset(); });
  ExpectNothingLeft([&] {
    TestClient client(Port());
    client.Send(Get("bytes-100000"));
    client.Reset();
  });
}

TEST_F(ClientKindsTest, HundredsOfIdleConnectionsHoldUpNeitherOthersNorAStop) {
  std::list<TestClient> idle;
  for (int i = 0; i < kManyClients; ++i) {
    ASSERT_TRUE(idle.emplace_back(Port()).IsConnected()) << i;
  }
  ExpectEcho(Get());
  EXPECT_TRUE(idle.front().StaysQuiet(0));
  EXPECT_TRUE(idle.back().StaysQuiet(0));
  const uint64_t beforeMs = ::GetTickCount64();
  m_server.Stop();
  EXPECT_LT(::GetTickCount64() - beforeMs, 4000u);
  for (TestClient& client : idle) {
    EXPECT_EQ(client.ReceiveAll(), "");
    ASSERT_TRUE(client.ClosedByPeer());
  }
  m_server.Start();
  ExpectEcho(Get());
  EXPECT_TRUE(AreThreadsBack());
}

}  // namespace
