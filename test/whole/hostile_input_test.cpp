// Whole: bytes in any order and any number, and clients that misbehave.
#include <gmock/gmock.h>

#include <random>

#include "test/whole/routing_fixture.h"

namespace {

using kova::test::Pattern;
using kova::test::RoutingFixture;
using kova::test::TestClient;
using namespace std::string_literals;

constexpr DWORD kQuietMs = 20;

constexpr char kFormHead[] =
    "POST / HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
    "Content-Length: 18\r\n\r\n";

class HostileInputTest : public RoutingFixture {
 protected:
  // Never a request: no answer, and an orderly end once the client ends.
  void ExpectNoAnswer(const std::string& bytes) {
    TestClient client(Port());
    SendIncomplete(client, bytes);
    EXPECT_TRUE(client.StaysQuiet(kQuietMs)) << bytes;
    client.FinishSending();
    EXPECT_EQ(client.ReceiveAll(), "");
    EXPECT_TRUE(client.ClosedByPeer()) << bytes;
  }
  static std::string WithLength(const std::string& value,
                                const std::string& body) {
    return "POST /?printer=KOVA+whole HTTP/1.1\r\nContent-Length: " + value +
           "\r\n\r\n" + body;
  }
};

TEST_F(HostileInputTest, ARequestMayBeCutAnywhere) {
  const std::string head = kFormHead;
  const std::string request = head + "printer=KOVA+whole";
  for (size_t cut = 1; cut < request.size(); ++cut) {
    // The headers alone are a request of their own.
    if (cut == head.size()) continue;
    TestClient client(Port());
    SendIncomplete(client, request.substr(0, cut));
    ASSERT_TRUE(client.Send(request.substr(cut)));
    ASSERT_EQ(client.ReceiveAll(), Echo(client, request)) << cut;
  }
}

TEST_F(HostileInputTest, BytesThatAreNoRequestGetNoAnswer) {
  ExpectNoAnswer("\n");
  ExpectNoAnswer("\r\n\r\n");
  ExpectNoAnswer("\n\n");
  ExpectNoAnswer("GET\r\n\r\n");
  ExpectNoAnswer("GET / HTTP/1.1\n");
  ExpectNoAnswer("\0"s);
  ExpectNoAnswer("\0\n\r\n\r\n"s);
  ExpectNoAnswer("GET /?printer=KOVA+whole\0 HTTP/1.1\r\n\r\n"s);
  ExpectNoAnswer("GET /?printer=KOVA+whole HTTP/1.1\r\nA:\0\r\n\r\n"s);
  ExpectEcho(Get());
}

TEST_F(HostileInputTest, BinaryGarbageHarmsNobody) {
  std::mt19937 random(4660);
  for (int round = 0; round < 20; ++round) {
    std::string bytes(1 + random() % 3000, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    // A zero in front keeps the rest from ever being a request.
    ExpectNoAnswer(std::string(1, '\0') + bytes);
  }
  ExpectEcho(Get());
}

TEST_F(HostileInputTest, GarbageBehindTheHeadersIsABody) {
  std::string request = "GET /?printer=KOVA+whole HTTP/1.1\r\n\xFF\xFE: \x01" +
                        "\r\n\r\n\0\n\0\xFF%"s;
  ExpectEcho(request);
}

TEST_F(HostileInputTest, ContentLengthMayBeAnyText) {
  ExpectEcho(WithLength("-5", "abc"));
  ExpectEcho(WithLength("", "abc"));
  ExpectEcho(WithLength("text", "abc"));
  ExpectEcho(WithLength("3", "abc"));
  ExpectEcho(WithLength("2", "abc"));
  ExpectEcho(WithLength("+3x", "abc"));
  ExpectEcho(WithLength("99", ""));
}

TEST_F(HostileInputTest, AContentLengthBeyondTheBodyIsWaitedFor) {
  ExpectNoAnswer(WithLength("4", "abc"));
  ExpectNoAnswer(WithLength("2147483647", "abc"));
  ExpectNoAnswer(WithLength("99999999999999999999", "abc"));
  TestClient client(Port());
  SendIncomplete(client, WithLength("6", "abc"));
  ASSERT_TRUE(client.Send("def"));
  EXPECT_EQ(client.ReceiveAll(), Echo(client, WithLength("6", "abcdef")));
}

TEST_F(HostileInputTest, EscapesAreCutOffWhereTheTextEnds) {
  ExpectEcho("GET /?printer=KOVA+whole% HTTP/1.1\r\n\r\n");
  ExpectEcho("GET /?printer=KOVA+whole%4 HTTP/1.1\r\n\r\n");
  ExpectEcho("GET /?printer=KOVA+whole%00tail HTTP/1.1\r\n\r\n");
  ExpectEcho("GET /%?printer=KOVA+whole&% HTTP/1.1\r\n\r\n");
  ExpectBadRequest("GET /?printer=%00KOVA+whole HTTP/1.1\r\n\r\n");
  ExpectBadRequest("GET /?printer=% HTTP/1.1\r\n\r\n");
  ExpectBadRequest("GET /% HTTP/1.1\r\n\r\n");
}

TEST_F(HostileInputTest, AClientMayResetInTheMiddle) {
  {
    TestClient client(Port());
    SendIncomplete(client, "GET /?printer=KOVA+whole HT");
    client.Reset();
  }
  {
    TestClient client(Port(), 4096);
    ASSERT_TRUE(client.Send(Get("bytes-8388608")));
    EXPECT_EQ(client.Receive(1000), Pattern(1000));
    client.Reset();
  }
  ExpectEcho(Get());
  EXPECT_EQ(m_extension.Record().live, 0);
}

TEST_F(HostileInputTest, AClientMayGoAwayWhileItIsServed) {
  kova::test::ExtensionGate gate(m_extension);
  TestClient client(Port());
  ASSERT_TRUE(client.Send(Get("wait")));
  ASSERT_TRUE(gate.WaitForArrival());
  client.Reset();
  gate.Open();
  EXPECT_TRUE(m_extension.WaitForCount('R', 1));
  ExpectEcho(Get());
}

}  // namespace
