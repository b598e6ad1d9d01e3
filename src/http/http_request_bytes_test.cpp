// Unit: requests cut at every offset, and bytes that are no requests.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "http/http_request.h"

namespace {

// Parses a copy that ends exactly where its block does, so that a read past
// the end is seen by a memory checker. All ways to ask must agree.
bool IsComplete(const std::string& bytes, size_t length) {
  const auto exact = std::make_unique<char[]>(length);
  bytes.copy(exact.get(), length);
  const auto count = static_cast<int32_t>(length);
  const bool isComplete = HTTPRequest::IsComplete(exact.get(), count);
  for (const bool parseForm : {false, true}) {
    HTTPRequest copying;
    EXPECT_EQ(copying.Parse(exact.get(), count, parseForm), isComplete)
        << testing::PrintToString(bytes.substr(0, length));
    HTTPRequest leaving;
    EXPECT_EQ(leaving.ParseInPlace(exact.get(), count, parseForm), isComplete);
    EXPECT_EQ(leaving.BodyLength(), copying.BodyLength());
  }
  return isComplete;
}

struct CutCase {
  const char* head;  // up to and with the blank line
  const char* body;
  size_t needed;  // bytes of the body without which it is incomplete
};

const CutCase kCutCases[] = {
    {"GET / HTTP/1.1\r\n\r\n", "", 0},
    {"GET /\n\n", "", 0},
    {"GET / HTTP/1.1\nHost: a\n\n", "", 0},
    {"GET / HTTP/1.1\r\nHost: a\r\n\n", "", 0},
    {"GET / HTTP/1.1\r\nHost: a\n\r\n", "", 0},
    {"GET /%41%4?x=%&y=%4 HTTP/1.1\r\nA:1\r\nB\r\n\r\n", "", 0},
    {"POST / HTTP/1.1\r\nContent-Length: 10\r\n\r\n", "a=b&c=%4\r\n\r\n", 10},
    {"POST / HTTP/1.1\r\nContent-Length: -3\r\n\r\n", "abc", 0},
    {"POST / HTTP/1.1\r\n"
     "Content-Type: application/x-www-form-urlencoded\r\n"
     "Content-Length: 7\r\n\r\n",
     "a=%&b=%", 7},
};

TEST(HTTPRequestBytesTest, HaveTheExpectedVerdictCutAtEveryOffset) {
  for (const CutCase& cut : kCutCases) {
    const std::string head = cut.head;
    const std::string all = head + cut.body;
    for (size_t length = 0; length <= all.size(); ++length) {
      const size_t body = length < head.size() ? 0 : length - head.size();
      const bool isExpected =
          length >= head.size() && (body == 0 || body >= cut.needed);
      EXPECT_EQ(IsComplete(all, length), isExpected)
          << testing::PrintToString(all.substr(0, length));
    }
  }
}

TEST(HTTPRequestBytesTest, WithAZeroInTheHeadAreNoRequest) {
  const std::string head = "GET / HTTP/1.1\r\nHost: a\r\n\r\n";
  // A zero in the terminator makes it none.
  for (size_t at = 0; at < head.size(); ++at) {
    std::string bytes = head + "rest";
    bytes[at] = '\0';
    EXPECT_FALSE(IsComplete(bytes, bytes.size())) << at;
  }
  EXPECT_TRUE(IsComplete(head + std::string(4, '\0'), head.size() + 4));
}

TEST(HTTPRequestBytesTest, AreNeverReadPastTheirEnd) {
  std::mt19937 random(4660);
  const std::string alphabet("GET /?=&%+41:\r\n\t\0\xE9\xFF", 19);
  const std::vector<std::string> heads = {"", "GET / ", "GET / HTTP/1.1\r\n",
                                          "P /?", "P /%\r\nContent-Length:"};
  size_t complete = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string bytes = heads[random() % heads.size()];
    for (size_t left = random() % 40; left > 0; --left) {
      bytes += alphabet[random() % alphabet.size()];
    }
    if (random() % 2 == 0) bytes += "\r\n\r\nx=%4";
    complete += IsComplete(bytes, bytes.size()) ? 1 : 0;
  }
  EXPECT_GT(complete, 1000u);
  EXPECT_LT(complete, 19000u);
}

TEST(HTTPRequestBytesTest, MayBeBinaryGarbage) {
  std::mt19937 random(5130);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes;
    for (size_t left = random() % 300; left > 0; --left) {
      bytes += static_cast<char>(random() % 256);
    }
    EXPECT_FALSE(IsComplete(bytes, bytes.size()));
  }
}

TEST(HTTPRequestBytesTest, AreParsedInLinearTime) {
  std::string bytes = "GET /?";
  for (int i = 0; i < 100000; ++i) bytes += "a=%41&";
  bytes += " HTTP/1.1\r\n";
  for (int i = 0; i < 100000; ++i) bytes += "A: 1\r\n";
  bytes += "\r\n";
  HTTPRequest request;
  const auto count = static_cast<int32_t>(bytes.size());
  EXPECT_TRUE(HTTPRequest::IsComplete(bytes.data(), count));
  EXPECT_TRUE(request.Parse(bytes.data(), count, false));
  EXPECT_EQ(request.FormNames().Count(), 100000);
  EXPECT_EQ(request.HeaderLines().Count(), 100000);
}

}  // namespace
