// Whole: requests to programs of our own that listen on this machine.
#include "admin/http_exchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "admin/scripted_peer.h"
#include "test/support/server_fixture.h"

namespace {

using ::kova::ctl::EndText;
using ::kova::ctl::Exchange;
using ::kova::ctl::ExchangeEnd;
using ::kova::ctl::IsServersOwnAnswer;
using ::kova::ctl::PercentEncoded;
using ::kova::ctl::SendGet;
using ::kova::ctl::test::AfterAnswer;
using ::kova::ctl::test::ScriptedPeer;
using ::kova::test::FreePort;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr uint32_t kPatienceMs = 10000;
constexpr uint32_t kShortMs = 300;

constexpr char kOwn[] =
    "HTTP/1.1 400 Bad Request\r\n"
    "Content-Type: application/octet-stream\r\n"
    "Cache-Control: no-cache\r\n"
    "Connection: Close\r\n"
    "Date: Sat, 21 Nov 2026 02:41:09 GMT\r\n"
    "Server: PC\r\n"
    "Accept-Ranges: None\r\n"
    "\r\n";

Exchange Ask(const std::string& answer, AfterAnswer after = AfterAnswer::kClose,
             uint32_t timeoutMs = kPatienceMs) {
  ScriptedPeer peer(answer, after);
  return SendGet(peer.Port(), L"/", timeoutMs);
}

TEST(SendGet, AsksForTheTargetAsItIs) {
  ScriptedPeer peer("HTTP/1.1 204 No Content\r\n\r\n", AfterAnswer::kClose);
  EXPECT_EQ(SendGet(peer.Port(), L"/?printer=a%2Fb%20c", kPatienceMs).end,
            ExchangeEnd::kAnswered);
  EXPECT_THAT(peer.Request(),
              StartsWith("GET /?printer=a%2Fb%20c HTTP/1.1\r\n"));
  EXPECT_THAT(peer.Request(), HasSubstr("\r\nHost: 127.0.0.1"));
}

TEST(SendGet, CountsTheBodyAndTakesTheTimes) {
  const Exchange exchange =
      Ask("HTTP/1.1 200 OK\r\n\r\n" + std::string(300000, '\0'));
  EXPECT_EQ(exchange.end, ExchangeEnd::kAnswered);
  EXPECT_EQ(exchange.status, 200u);
  EXPECT_EQ(exchange.bodyBytes, 300000u);
  ASSERT_TRUE(exchange.connectMs && exchange.firstByteMs);
  EXPECT_LE(*exchange.connectMs, *exchange.firstByteMs);
  EXPECT_LE(*exchange.firstByteMs, exchange.totalMs);
}

TEST(SendGet, FollowsNoRedirection) {
  const Exchange exchange =
      Ask("HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\n"
          "Content-Length: 0\r\n\r\n");
  EXPECT_EQ(exchange.end, ExchangeEnd::kAnswered);
  EXPECT_EQ(exchange.status, 302u);
}

TEST(SendGet, FindsNobody) {
  const Exchange exchange = SendGet(FreePort(), L"/", kPatienceMs);
  EXPECT_EQ(exchange.end, ExchangeEnd::kRefused);
  EXPECT_EQ(exchange.connectMs, std::nullopt);
  EXPECT_EQ(EndText(exchange, 80, 1000), L"nothing listens on port 80");
}

TEST(SendGet, WaitsNoLongerThanItMay) {
  const Exchange silent = Ask("", AfterAnswer::kStayOpen, kShortMs);
  EXPECT_EQ(silent.end, ExchangeEnd::kTimedOut);
  EXPECT_EQ(silent.firstByteMs, std::nullopt);
  EXPECT_GE(silent.totalMs, 200);
  const Exchange begun = Ask("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbody",
                             AfterAnswer::kStayOpen, kShortMs);
  EXPECT_EQ(begun.end, ExchangeEnd::kTimedOut);
  EXPECT_NE(begun.firstByteMs, std::nullopt);
  EXPECT_EQ(EndText(begun, 80, 1500),
            L"port 80 gave no whole answer within 2 s");
}

TEST(SendGet, TakesNoLongerThanItMayHoweverSlowlyBytesCome) {
  for (const char* const begin :
       {"H", "HTTP/1.1 200 OK\r\nX: y", "HTTP/1.1 200 OK\r\n\r\nbody",
        "HTTP/1.1 200 OK\r\nContent-Length: 999999\r\n\r\nbody"}) {
    const Exchange slow = Ask(begin, AfterAnswer::kTrickle, kShortMs);
    EXPECT_EQ(slow.end, ExchangeEnd::kTimedOut) << begin;
    EXPECT_LT(slow.totalMs, kPatienceMs) << begin;
  }
}

TEST(SendGet, TellsWhatIsNoHttp) {
  EXPECT_EQ(Ask("220 mail ready\r\n").end, ExchangeEnd::kNoHttp);
  EXPECT_EQ(Ask(std::string("\0\1\2", 3)).end, ExchangeEnd::kNoHttp);
  EXPECT_NE(Ask("").end, ExchangeEnd::kAnswered);
}

TEST(SendGet, TellsAnAnswerThatIsCutShort) {
  const Exchange cut =
      Ask("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbody1234");
  EXPECT_EQ(cut.end, ExchangeEnd::kBroken);
  EXPECT_THAT(EndText(cut, 80, 1000), HasSubstr(L"error 12030"));
  EXPECT_EQ(Ask("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbody12345").end,
            ExchangeEnd::kAnswered);
}

TEST(IsServersOwnAnswer, KnowsTheAnswerByAllOfItsLines) {
  EXPECT_TRUE(IsServersOwnAnswer(Ask(kOwn)));
  const std::string own = kOwn;
  EXPECT_FALSE(IsServersOwnAnswer(Ask(own + "x")));
  std::string other = own;
  EXPECT_FALSE(IsServersOwnAnswer(Ask(other.replace(9, 3, "404"))));
  other = own;
  other.insert(other.size() - 2, "X: y\r\n");
  EXPECT_FALSE(IsServersOwnAnswer(Ask(other)));
  other = own;
  other.erase(other.find("Accept-Ranges"), 21);
  EXPECT_FALSE(IsServersOwnAnswer(Ask(other)));
  EXPECT_FALSE(IsServersOwnAnswer(Exchange()));
}

TEST(PercentEncoded, LeavesOnlyWhatIsSafeAsItIs) {
  EXPECT_EQ(PercentEncoded(L"aZ09-._~"), L"aZ09-._~");
  EXPECT_EQ(PercentEncoded(L"a b/&=+%#"), L"a%20b%2F%26%3D%2B%25%23");
  EXPECT_EQ(PercentEncoded(L"\xFC"), L"%C3%BC");
  EXPECT_EQ(PercentEncoded(std::wstring(L"a\0", 2)), L"a%00");
}

}  // namespace
