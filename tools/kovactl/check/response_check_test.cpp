// Unit: what is and what is not a well-formed response.
#include "check/response_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace kova::ctl::check {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr ResponseSetting kClosed{};
constexpr ResponseSetting kKept{.keepOpen = true};
constexpr ResponseSetting kToHead{.toHead = true};

std::vector<std::string> Codes(std::string_view bytes,
                               const ResponseSetting& setting = kClosed) {
  std::vector<std::string> codes;
  for (const Finding& finding : CheckResponse(bytes, setting).findings) {
    codes.emplace_back(KindOf(finding.flaw).code);
  }
  return codes;
}

TEST(ResponseCheckTest, FindsNothingInSoundResponses) {
  const std::string_view kSound[] = {
      "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok",
      "HTTP/1.0 404 Not Found\r\ncontent-LENGTH:\t 0 \r\n\r\n",
      "HTTP/1.1 500\r\nContent-Length: 0\r\n\r\n",
      "HTTP/1.1 204 No Content\r\n\r\n",
      "HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\n\r\n",
      "HTTP/1.1 200 OK\r\n\r\n",
      "HTTP/1.1 200 OK\r\nX:\r\nY: a\tb \x80\r\nContent-Length: 1\r\n\r\n\n",
      "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n",
  };
  for (const std::string_view bytes : kSound) {
    EXPECT_THAT(Codes(bytes), IsEmpty()) << bytes;
  }
  EXPECT_EQ(CheckResponse(kSound[1], kClosed).status, 404);
}

TEST(ResponseCheckTest, AcceptsZerosInABody) {
  const std::string bytes =
      std::string("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n") +
      std::string("\0a\0", 3);
  EXPECT_THAT(Codes(bytes), IsEmpty());
  EXPECT_THAT(Codes(bytes + '\0'), ElementsAre("content-length-wrong"));
}

TEST(ResponseCheckTest, WantsAStatusLine) {
  const std::string kBad[] = {
      "",
      "H",
      "HTTP/1.1 2",
      "HTTP/1.1 200",
      "HTTP/1.1 200 OK",
      "HTTP/1.1 20 OK\r\n\r\n",
      "HTTP/1.1 2000 OK\r\n\r\n",
      "HTTP/1.1 099 OK\r\n\r\n",
      "HTTP/2.0 200 OK\r\n\r\n",
      "http/1.1 200 OK\r\n\r\n",
      "HTTP/1.1  200 OK\r\n\r\n",
      "\r\nHTTP/1.1 200 OK\r\n\r\n",
      std::string("HTTP/1.1 200 O\0K\r\n\r\n", 20),
  };
  for (const std::string& bytes : kBad) {
    EXPECT_THAT(Codes(bytes), ElementsAre("status-line")) << bytes;
    EXPECT_EQ(CheckResponse(bytes, kClosed).status, 0);
  }
}

// Cut anywhere, a response is never taken for a whole one.
TEST(ResponseCheckTest, NoticesACutAtEveryByte) {
  const std::string_view whole =
      "HTTP/1.1 200 OK\r\nA: b\r\nContent-Length: 2\r\n\r\nok";
  EXPECT_THAT(Codes(whole), IsEmpty());
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_THAT(Codes(whole.substr(0, length)), testing::SizeIs(1)) << length;
  }
}

TEST(ResponseCheckTest, WantsCrLfAndSaysSoOnce) {
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\nA: b\nContent-Length: 0\n\n"),
              ElementsAre("line-end"));
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\n"),
              ElementsAre("line-end"));
  EXPECT_THAT(Codes("HTTP/1.1 200\nContent-Length: 0\r\n\r\n"),
              ElementsAre("line-end"));
}

TEST(ResponseCheckTest, WantsNameColonValue) {
  const std::string kLines[] = {"no colon",
                                ": no name",
                                "A B: c",
                                "A : c",
                                " A: continued",
                                "A: \x01",
                                std::string("A: \0", 4),
                                "A(B): c",
                                "A: b\rc",
                                "\x7F: a"};
  for (const std::string& line : kLines) {
    EXPECT_THAT(
        Codes("HTTP/1.1 200 OK\r\n" + line + "\r\nContent-Length: 0\r\n\r\n"),
        ElementsAre("header-line"))
        << line;
  }
}

TEST(ResponseCheckTest, WantsTheEmptyLine) {
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\n"), ElementsAre("no-empty-line"));
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"),
              ElementsAre("no-empty-line"));
}

TEST(ResponseCheckTest, ReadsContentLengthAsOneNumber) {
  const char* const kValues[] = {"",   "ten", "-1",  "+1",
                                 "1x", "1 1", "0x1", "99999999999999999999"};
  for (const char* const value : kValues) {
    EXPECT_THAT(Codes(std::string("HTTP/1.1 200 OK\r\nContent-Length: ") +
                      value + "\r\n\r\n1"),
                ElementsAre("content-length-text"))
        << value;
  }
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n"
                    "Content-Length: 2\r\n\r\n1"),
              ElementsAre("content-length-text"));
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n"
                    "Content-Length: 1\r\n\r\n1"),
              IsEmpty());
}

TEST(ResponseCheckTest, ComparesContentLengthWithTheBody) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
  EXPECT_THAT(Codes(head + "1234"), ElementsAre("content-length-wrong"));
  EXPECT_THAT(Codes(head + "12345"), IsEmpty());
  EXPECT_THAT(Codes(head + "123456"), ElementsAre("content-length-wrong"));
}

TEST(ResponseCheckTest, WantsALengthOfWhatStaysOpen) {
  const std::string_view bare = "HTTP/1.1 200 OK\r\n\r\nok";
  EXPECT_THAT(Codes(bare), ElementsAre("no-content-length"));
  EXPECT_THAT(Codes(bare, kKept), ElementsAre("keep-open-without-length"));
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\n\r\n", kKept),
              ElementsAre("keep-open-without-length"));
  EXPECT_THAT(Codes("HTTP/1.1 204 x\r\n\r\n", kKept), IsEmpty());
}

TEST(ResponseCheckTest, ComparesTheConnectionHeaderWithTheFlag) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n";
  const std::string close = head + "Connection: Close\r\n\r\n";
  const std::string keep = head + "connection: keep-alive\r\n\r\n";
  EXPECT_THAT(Codes(close, kClosed), IsEmpty());
  EXPECT_THAT(Codes(keep, kKept), IsEmpty());
  EXPECT_THAT(Codes(close, kKept), ElementsAre("connection-disagrees"));
  EXPECT_THAT(Codes(keep, kClosed), ElementsAre("connection-disagrees"));
}

TEST(ResponseCheckTest, ReadsEachWordOfTheConnectionHeader) {
  const std::string head = " 200 OK\r\nContent-Length: 0\r\n";
  EXPECT_THAT(Codes("HTTP/1.1" + head + "Connection: x , close\r\n\r\n", kKept),
              ElementsAre("connection-disagrees"));
  EXPECT_THAT(Codes("HTTP/1.0" + head + "\r\n", kKept),
              ElementsAre("connection-disagrees"));
  EXPECT_THAT(
      Codes("HTTP/1.0" + head + "Connection: Keep-Alive\r\n\r\n", kKept),
      IsEmpty());
}

TEST(ResponseCheckTest, KnowsTheStatusesThereAre) {
  const std::string rest = " x\r\nContent-Length: 0\r\n\r\n";
  EXPECT_THAT(Codes("HTTP/1.1 599" + rest), IsEmpty());
  EXPECT_THAT(Codes("HTTP/1.1 600" + rest), ElementsAre("status-range"));
  EXPECT_THAT(Codes("HTTP/1.1 099" + rest), ElementsAre("status-line"));
}

TEST(ResponseCheckTest, ComparesTheCodingWithHowTheBodyBegins) {
  struct {
    const char* headers;
    std::string_view body;
    bool fits;
  } const kRows[] = {
      {"Content-Encoding: gzip\r\n", "\x1F\x8Bx", true},
      {"Content-Encoding: GZIP\r\n", "ok ", false},
      {"Content-Encoding: deflate\r\n", "\x78\x9Cx", true},
      {"Content-Encoding: deflate\r\n", "\x78\x9Dx", false},
      {"Content-Encoding: zstd\r\n", "ok ", false},
      {"Content-Encoding: br\r\n", "ok ", true},
      {"Content-Encoding: utf-8\r\n", "ok ", false},
      {"Content-Type: text/html\r\n", "\x1F\x8Bx", false},
      {"Content-Type: application/gzip\r\n", "\x1F\x8Bx", true},
  };
  for (const auto& row : kRows) {
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n" +
                               std::string(row.headers) + "\r\n" +
                               std::string(row.body);
    if (row.fits) {
      EXPECT_THAT(Codes(answer), IsEmpty()) << row.headers;
    } else {
      EXPECT_THAT(Codes(answer), ElementsAre("content-encoding"))
          << row.headers;
    }
  }
}

TEST(ResponseCheckTest, SeesAHeaderThatARequestBrought) {
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\nx-kovacheck: b\r\n"
                    "Content-Length: 0\r\n\r\n"),
              ElementsAre("header-injection"));
}

TEST(ResponseCheckTest, AllowsNoBodyWhereThereIsNone) {
  EXPECT_THAT(Codes("HTTP/1.1 204 No\r\n\r\nx"), ElementsAre("forbidden-body"));
  EXPECT_THAT(Codes("HTTP/1.1 304 No\r\n\r\nx"), ElementsAre("forbidden-body"));
  EXPECT_THAT(Codes("HTTP/1.1 100 Continue\r\n\r\n"),
              ElementsAre("forbidden-body"));
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
  EXPECT_THAT(Codes(head, kToHead), IsEmpty());
  EXPECT_THAT(Codes(head + "12345", kToHead), ElementsAre("head-body"));
  EXPECT_THAT(Codes(head + "12345", {.toHead = true, .keepOpen = true}),
              ElementsAre("forbidden-body"));
}

TEST(ResponseCheckTest, FollowsChunks) {
  const std::string head =
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n";
  EXPECT_THAT(Codes(head + "2;x=y\r\nok\r\nA\r\n0123456789\r\n0\r\n\r\n"),
              IsEmpty());
  EXPECT_THAT(Codes(head + "0\r\n\r\n", kKept), IsEmpty());
  EXPECT_THAT(Codes(head + "0\r\n\r\n", {.toHttp10 = true}),
              ElementsAre("chunks"));
  EXPECT_THAT(Codes("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n"
                    "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n"),
              ElementsAre("chunks"));
  const char* const kBad[] = {"",
                              "0",
                              "0\r\n",
                              "x\r\n\r\n",
                              "2\r\nok",
                              "2\r\nok\r\n",
                              "3\r\nok\r\n0\r\n\r\n",
                              "0\r\n\r\nx",
                              "2\r\nokxx0\r\n\r\n",
                              "FFFFFFFFFFFFFFFF\r\nok\r\n"};
  for (const char* const body : kBad) {
    EXPECT_THAT(Codes(head + body), ElementsAre("chunks")) << body;
  }
}

TEST(ResponseCheckTest, QuotesWhatIsNotPrintable) {
  EXPECT_EQ(Quoted(""), "\"\"");
  EXPECT_EQ(Quoted(std::string_view("a\0\x1b\r\n\xFF", 6)),
            "\"a\\x00\\x1B\\r\\n\\xFF\"");
  EXPECT_EQ(Quoted(std::string(40, 'x')), "\"" + std::string(40, 'x') + "\"");
  EXPECT_EQ(Quoted(std::string(41, 'x')),
            "\"" + std::string(40, 'x') + "\"...");
}

}  // namespace
}  // namespace kova::ctl::check
