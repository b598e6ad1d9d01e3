// Whole: connections that stay open, and answers of all sizes.
#include <gmock/gmock.h>

#include "test/whole/routing_fixture.h"

namespace {

using kova::test::Ask;
using kova::test::kEightMiB;
using kova::test::Pattern;
using kova::test::RoutingFixture;
using kova::test::TestClient;

class ClientConnectionTest : public RoutingFixture {
 protected:
  static std::string Bytes(size_t count) {
    return "bytes-" + std::to_string(count);
  }
  void ExpectAnswer(TestClient& client, const std::string& request,
                    const std::string& answer) {
    ASSERT_TRUE(client.Send(request));
    EXPECT_EQ(client.Receive(answer.size()), answer);
  }
};

TEST_F(ClientConnectionTest, StaysOpenIfTheExtensionAsksForIt) {
  TestClient client(Port());
  ExpectAnswer(client, Get("keep"), Echo(client, Get("keep")));
  // The flag stays as the extension left it, until it takes it back.
  ExpectAnswer(client, Get(), Echo(client, Get(), 1));
  ASSERT_TRUE(client.Send(Get("close")));
  EXPECT_EQ(client.ReceiveAll(), Echo(client, Get("close"), 1));
  EXPECT_TRUE(client.ClosedByPeer());
  EXPECT_EQ(m_extension.Trace(), "VSIHLCRHLCRHLCR");
}

TEST_F(ClientConnectionTest, ABadRequestLeavesAKeptConnectionOpen) {
  TestClient client(Port());
  ExpectAnswer(client, Get("keep"), Echo(client, Get("keep")));
  ASSERT_TRUE(client.Send("GET / HTTP/1.1\r\n\r\n"));
  std::string answer;
  while (answer.find("\r\n\r\n") == std::string::npos) {
    const std::string more = client.Receive(1);
    ASSERT_FALSE(more.empty());
    answer += more;
  }
  EXPECT_EQ(kova::test::MaskDate(answer), kova::test::BadRequest());
  ExpectAnswer(client, Get(), Echo(client, Get(), 1));
}

TEST_F(ClientConnectionTest, ASecondRequestStartsFreshInPieces) {
  TestClient client(Port());
  ExpectAnswer(client, Get("keep"), Echo(client, Get("keep")));
  SendIncomplete(client, "GET /?printer=KOVA+whole HTTP/1.1\r\n");
  const std::string whole = "GET /?printer=KOVA+whole HTTP/1.1\r\n\r\n";
  ExpectAnswer(client, "\r\n", Echo(client, whole, 1));
}

TEST_F(ClientConnectionTest, PipelinedRequestsGoOverAsOne) {
  ExpectEcho(Get() + Get("keep"));
  EXPECT_EQ(m_extension.Trace(), "VSIHLCR");
  TestClient client(Port());
  const std::string both = Get("keep") + Get("keep");
  ExpectAnswer(client, both, Echo(client, both));
  ExpectAnswer(client, Get("close"), Echo(client, Get("close"), 1));
}

TEST_F(ClientConnectionTest, AnswersOfEverySizeArriveWhole) {
  for (const size_t count : {size_t{1}, size_t{16384}, size_t{199999},
                             size_t{200000}, size_t{200001}, size_t{400000}}) {
    EXPECT_TRUE(Ask(Port(), Get(Bytes(count))) == Pattern(count)) << count;
  }
}

TEST_F(ClientConnectionTest, EightMegabytesArriveAndTheConnectionGoesOn) {
  EXPECT_TRUE(Ask(Port(), Get(Bytes(kEightMiB))) == Pattern(kEightMiB));
  TestClient client(Port());
  ASSERT_TRUE(client.Send(Get("keep," + Bytes(kEightMiB))));
  EXPECT_TRUE(client.Receive(kEightMiB) == Pattern(kEightMiB));
  ExpectAnswer(client, Get("close"), Echo(client, Get("close"), 1));
}

TEST_F(ClientConnectionTest, ASlowReaderGetsEverything) {
  TestClient client(Port(), 4096);
  AskForMuch(client);
  ExpectEcho(Get());
  EXPECT_TRUE(client.ReceiveAll() == Pattern(kEightMiB));
  EXPECT_TRUE(client.ClosedByPeer());
}

TEST_F(ClientConnectionTest, LargeRequestsArriveWhole) {
  for (const size_t count : {16383, 16384, 16385, 1000000}) {
    const std::string head =
        "POST /?printer=KOVA+whole HTTP/1.1\r\nContent-Length: " +
        std::to_string(count) + "\r\n\r\n";
    // The first body byte comes with the headers: they alone were a request.
    ExpectEcho(head + Pattern(count));
  }
}

}  // namespace
