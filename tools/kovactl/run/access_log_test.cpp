// Unit: the line that a request gets, on the screen and in the access log.
#include "run/access_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using ::kova::ctl::AccessLine;
using ::kova::ctl::AccessLogFile;
using ::kova::ctl::CombinedLine;
using ::kova::ctl::SeenExchange;

// 2026-11-22 05:14:36 UTC
constexpr uint64_t kTime = 134397980760000000;

SeenExchange MakeExchange(const std::string& request,
                          const std::string& response) {
  SeenExchange exchange;
  exchange.startTime = kTime;
  exchange.microseconds = 3060;
  exchange.client = L"192.0.2.7:50123";
  exchange.request = request;
  exchange.requestBytes = request.size();
  exchange.response = response;
  exchange.responseBytes = response.size();
  return exchange;
}

const std::string kAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

// Behind the time, which is that of this machine's zone.
std::wstring Line(const SeenExchange& exchange, bool color = false) {
  return AccessLine(exchange, color).substr(9);
}

TEST(AccessLineTest, TellsWhatWasAskedAndAnswered) {
  const SeenExchange exchange = MakeExchange(
      "GET /a?printer=Lobby+1 HTTP/1.1\r\nHost: h\r\n\r\n", kAnswer);
  EXPECT_EQ(Line(exchange),
            L"192.0.2.7:50123 GET /a?printer=Lobby+1 200 40 B 3.1 ms "
            L"\"Lobby 1\"\n");
  EXPECT_EQ(Line(exchange, true),
            L"192.0.2.7:50123 GET /a?printer=Lobby+1 \x1b[32m200\x1b[0m 40 B "
            L"3.1 ms \"Lobby 1\"\n");
}

TEST(AccessLineTest, NamesTheShareThatWasAskedFor) {
  EXPECT_EQ(Line(MakeExchange("POST /?share=s HTTP/1.1\r\n\r\n", kAnswer)),
            L"192.0.2.7:50123 POST /?share=s 200 40 B 3.1 ms share \"s\"\n");
}

TEST(AccessLineTest, TellsOfAnswersThatTheServerGave) {
  EXPECT_EQ(Line(MakeExchange("GET /?printer=P HTTP/1.1\r\n\r\n", "")),
            L"192.0.2.7:50123 GET /?printer=P 400 by the server\n");
  EXPECT_EQ(Line(MakeExchange("", "")),
            L"192.0.2.7:50123 a request that no extension was given 400 by "
            L"the server\n");
}

TEST(AccessLineTest, HoldsNothingThatCommandsATerminal) {
  const SeenExchange exchange =
      MakeExchange("GET /\x1b[2J?printer=%1b%0a" + std::string(99, 'x') +
                       " HTTP/1.1\r\n\r\n",
                   kAnswer);
  const std::wstring line = Line(exchange);
  EXPECT_EQ(line.find(L'\x1b'), std::wstring::npos);
  EXPECT_EQ(line.find(L'\n'), line.size() - 1);
  EXPECT_NE(line.find(L"xxx... 200"), std::wstring::npos) << line.size();
}

TEST(CombinedLineTest, IsWhatLogReadersTake) {
  EXPECT_EQ(
      CombinedLine(MakeExchange("GET /a?b HTTP/1.1\r\nReferer: http://r/\r\n"
                                "User-Agent: a \"b\" \\\r\n\r\n",
                                kAnswer)),
      "192.0.2.7 - - [22/Nov/2026:05:14:36 +0000] \"GET /a?b HTTP/1.1\" "
      "200 2 \"http://r/\" \"a \\x22b\\x22 \\x5c\"\n");
  EXPECT_EQ(CombinedLine(MakeExchange("", "")),
            "192.0.2.7 - - [22/Nov/2026:05:14:36 +0000] \"-\" 400 - \"-\" "
            "\"-\"\n");
}

TEST(AccessLogFileTest, GoesOnBehindWhatItHolds) {
  const std::filesystem::path path = "access_log_test.txt";
  std::filesystem::remove(path);
  const SeenExchange exchange = MakeExchange("GET / HTTP/1.1\r\n\r\n", kAnswer);
  for (int i = 0; i < 2; ++i) {
    AccessLogFile log;
    ASSERT_FALSE(log.Open(path.wstring()).has_value());
    log.Add(exchange);
  }
  {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(text, CombinedLine(exchange) + CombinedLine(exchange));
  }
  std::filesystem::remove(path);
  AccessLogFile log;
  EXPECT_TRUE(log.Open(L"no-folder\\x").has_value());
}

}  // namespace
