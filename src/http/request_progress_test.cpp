// Unit: a request looked at after each receive, however it is cut.
#include "http/request_progress.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "http/http_request.h"

namespace kova {
namespace {

using namespace std::string_literals;

// The verdict of a whole parse on each beginning of `bytes`.
std::vector<bool> VerdictsOf(const std::string& bytes) {
  std::vector<bool> verdicts;
  for (size_t length = 0; length <= bytes.size(); ++length) {
    HTTPRequest request;
    verdicts.push_back(request.ParseInPlace(
        bytes.data(), static_cast<int32_t>(length), false));
  }
  return verdicts;
}

// Looks at the first `ends` bytes of `bytes`, one after another. Each is a
// buffer of its own, so that a read past its end is seen by a memory checker.
void ExpectVerdicts(const std::string& bytes, const std::vector<bool>& verdicts,
                    const std::vector<size_t>& ends) {
  RequestProgress progress;
  for (const size_t end : ends) {
    const std::vector<char> received(bytes.begin(),
                                     bytes.begin() + static_cast<int>(end));
    EXPECT_EQ(progress.IsComplete({received.data(), end}), verdicts[end])
        << testing::PrintToString(bytes) << " cut at "
        << testing::PrintToString(ends);
  }
}

void ExpectSameVerdictsHoweverCut(const std::string& bytes) {
  const std::vector<bool> verdicts = VerdictsOf(bytes);
  std::vector<size_t> each;
  for (size_t first = 0; first <= bytes.size(); ++first) {
    each.push_back(first);
    for (size_t second = first; second <= bytes.size(); ++second) {
      ExpectVerdicts(bytes, verdicts, {first, second, bytes.size()});
    }
  }
  ExpectVerdicts(bytes, verdicts, each);
}

TEST(RequestProgressTest, HasTheVerdictOfAWholeParseHoweverTheBytesAreCut) {
  const std::string requests[] = {
      "GET / HTTP/1.1\r\n\r\n",
      "GET /\n\nbody",
      "GET /\r\n\nbody",
      "GET /\n\r\nbody",
      "GET /\r\nA\r\n\n",
      "GET /\nA\n\r\n\r\n",
      "GET /\n\r\r\n\n\r\n",
      "GET\r\n\r\nGET / HTTP/1.1\r\n\r\n",
      "GET ?x HTTP/1.1\r\n\r\n",
      "GET %00 HTTP/1.1\r\n\r\n",
      "\r\n\r\nGET /\n\n",
      "G\0T /\n\nGET /\n\n"s,
      "GET /\nA\0\n\nGET /\n\n"s,
      "GET /\nA\n\0\n\n"s,
      "GET /\nA\r\n\0\r\n\n"s,
      "GET /\n\n\0\0\n\n"s,
      "POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\n1234567",
      "POST /\nA:1\nContent-Length: 3\nContent-Length: 1\n\n12345",
      "POST /\nContent-Length: -3\n\n12",
      "POST /\nContent-Length: 99999999999\n\n12",
      "POST /\nContent-Length:\n\n12",
      "POST /\nContent-Length : 9\n\n12",
      "POST /\n\nContent-Length: 9\n\n12",
  };
  for (const std::string& request : requests) {
    ExpectSameVerdictsHoweverCut(request);
  }
}

TEST(RequestProgressTest, HasTheVerdictOfAWholeParseForRandomBytes) {
  std::mt19937 random(4660);
  const std::string alphabet = "aaA:5 \r\r\n\n\n\0"s;
  for (int round = 0; round < 1000; ++round) {
    std::string bytes = round % 8 == 0 ? "" : "GET / x\n";
    if (round % 3 == 0) bytes += "Content-Length:3\n";
    for (size_t left = random() % 16; left > 0; --left) {
      // Zeros are rarer than the rest.
      bytes += alphabet[random() % (alphabet.size() - random() % 2)];
    }
    ExpectSameVerdictsHoweverCut(bytes);
  }
}

TEST(RequestProgressTest, BeginsAnewForTheNextRequest) {
  RequestProgress progress;
  EXPECT_TRUE(progress.IsComplete("POST /\nContent-Length: 1\n\nx"));
  progress.Reset();
  EXPECT_FALSE(progress.IsComplete("GET"));
  EXPECT_FALSE(progress.IsComplete("GET\n"));
  progress.Reset();
  EXPECT_FALSE(progress.IsComplete("POST /\nContent-Length: 2\n\nx"));
  EXPECT_TRUE(progress.IsComplete("POST /\nContent-Length: 2\n\nxy"));
}

// What bytes that nobody may look at again are made into. A second look at
// them would find another verdict: no request, or another end of its parts.
const char kOtherBytes[] = {'\0', '\n', 'x'};

// Three bytes are kept, for they may begin a terminator.
TEST(RequestProgressTest, LooksAtNoByteOfEndlessHeadersTwice) {
  for (const bool hasLines : {true, false}) {
    std::string bytes;
    while (hasLines && bytes.size() < 100000) bytes += "A\n";
    bytes.resize(100000, 'x');
    for (const char other : kOtherBytes) {
      std::string received = "GET / HTTP/1.1\r\n";
      RequestProgress progress;
      EXPECT_FALSE(progress.IsComplete(received));
      for (const char byte : bytes) {
        received += byte;
        ASSERT_FALSE(progress.IsComplete(received)) << received.size();
        received[received.size() - 4] = other;
      }
      received += "\r\n\r\n";
      EXPECT_TRUE(progress.IsComplete(received)) << hasLines;
    }
  }
}

TEST(RequestProgressTest, LooksAtNoByteOfARequestLineTwice) {
  std::string received;
  RequestProgress progress;
  const std::string bytes = "GET /" + std::string(100000, 'x');
  for (const char byte : bytes) {
    received += byte;
    ASSERT_FALSE(progress.IsComplete(received));
    if (received.size() > 3) received[received.size() - 4] = '\0';
  }
  EXPECT_TRUE(progress.IsComplete(bytes + "\n\n"));
}

// The headers are looked at once for the whole body.
TEST(RequestProgressTest, LooksAtNoHeaderAgainWhileTheBodyTricklesIn) {
  constexpr size_t kBodyBytes = 10000;
  std::string head = "POST / HTTP/1.1\r\n";
  while (head.size() < size_t{10} << 20) head += "x\n";
  head += "Content-Length: " + std::to_string(kBodyBytes) + "\r\n\r\n";
  RequestProgress progress;
  EXPECT_TRUE(progress.IsComplete(head));
  EXPECT_FALSE(progress.IsComplete(head + "b"));
  for (const char other : kOtherBytes) {
    RequestProgress later = progress;
    std::string received(head.size() + 1, other);
    for (size_t body = 2; body <= kBodyBytes; ++body) {
      received += 'b';
      ASSERT_EQ(later.IsComplete(received), body == kBodyBytes) << body;
    }
  }
}

}  // namespace
}  // namespace kova
