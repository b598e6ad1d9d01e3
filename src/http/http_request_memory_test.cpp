// Patched: how much memory a request asks for.
#include <gtest/gtest.h>

#include <string>

#include "http/http_request.h"
#include "test/support/watched_heap.h"

namespace {

using Cost = kova::test::HeapCost;
using kova::test::CostOf;

int32_t SizeOf(const std::string& bytes) {
  return static_cast<int32_t>(bytes.size());
}

const std::string kHead =
    "POST /status/index.html?printer=Office%20Printer&page=1 HTTP/1.1\r\n"
    "Host: 192.168.10.20:9312\r\n"
    "Accept: text/html,application/xhtml+xml,application/xml;q=0.9\r\n"
    "Connection: keep-alive\r\n";

const std::string& BigRequest() {
  static const std::string request =
      kHead + "Content-Length: 1000000\r\n\r\n" + std::string(1000000, 'x');
  return request;
}

TEST(HTTPRequestMemoryTest, IsNotNeededToTellWhetherARequestIsComplete) {
  const std::string& whole = BigRequest();
  const Cost cost = CostOf([&] {
    EXPECT_TRUE(HTTPRequest::IsComplete(whole.data(), SizeOf(whole)));
    EXPECT_FALSE(HTTPRequest::IsComplete(whole.data(), SizeOf(whole) - 1));
    EXPECT_FALSE(HTTPRequest::IsComplete(whole.data(), SizeOf(kHead)));
  });
  EXPECT_EQ(cost.calls, 0u);
}

// Looked at after each of many receives: what one look took, all would take.
TEST(HTTPRequestMemoryTest, IsNotNeededWhileHeadersDoNotEnd) {
  std::string bytes = kHead;
  while (bytes.size() < 1000000) bytes += "X-Example: 0123456789\r\n";
  const Cost cost = CostOf([&] {
    for (int32_t have = 16384; have < SizeOf(bytes); have += 16384) {
      EXPECT_FALSE(HTTPRequest::IsComplete(bytes.data(), have));
    }
  });
  EXPECT_EQ(cost.calls, 0u);
}

// What is parsed in place takes no more than the list of its two forms.
TEST(HTTPRequestMemoryTest, IsNotTakenForFieldsThatNobodyAsksFor) {
  for (const std::string& type :
       {std::string("text/plain"),
        std::string("application/x-www-form-urlencoded")}) {
    std::string whole = kHead;
    whole.append("Content-Type: ").append(type).append("\r\n\r\n");
    whole.append(9999, '=');
    const Cost cost = CostOf([&] {
      HTTPRequest request;
      EXPECT_TRUE(request.ParseInPlace(whole.data(), SizeOf(whole), true));
    });
    EXPECT_LE(cost.calls, 2u);
    EXPECT_LT(cost.bytes, 100u);
  }
}

TEST(HTTPRequestMemoryTest, IsTakenForOneCopyOfTheBytesWhereThatIsKept) {
  const std::string& whole = BigRequest();
  const Cost cost = CostOf([&] {
    HTTPRequest request;
    EXPECT_TRUE(request.Parse(whole.data(), SizeOf(whole), true));
  });
  EXPECT_GE(cost.bytes, whole.size());
  EXPECT_LT(cost.bytes, whole.size() + 100);
}

TEST(HTTPRequestMemoryTest, IsNotNeededToFindAFormValue) {
  HTTPRequest request;
  const std::string bytes = kHead + "\r\n";
  EXPECT_TRUE(request.Parse(bytes.data(), SizeOf(bytes), true));
  const Cost cost = CostOf([&] {
    EXPECT_FALSE(request.GetFormValue(L"page").empty());
    EXPECT_TRUE(request.GetFormValue(L"share").empty());
  });
  EXPECT_EQ(cost.calls, 0u);
}

// Names and values of every kind that is not asked for.
TEST(HTTPRequestMemoryTest, IsNotNeededToPassFormFieldsOver) {
  std::string bytes = "GET /?";
  for (const char* const piece :
       {"=&", "a=&", "%E2%82%AC=&", "printe%C3%A9=x&", "p%C1%B2inters=&"}) {
    for (int i = 0; i < 1000; ++i) bytes += piece;
  }
  bytes += "%70rinter=%E2%82%AC" + std::string(1000, '+') + "x HTTP/1.1\n\n";
  HTTPRequest request;
  EXPECT_TRUE(request.ParseInPlace(bytes.data(), SizeOf(bytes), true));
  std::wstring value;
  const Cost cost = CostOf([&] { value = request.GetFormValue(L"printer"); });
  EXPECT_EQ(value.size(), 1002u);
  EXPECT_EQ(cost.calls, 1u);
}

// A request of many lines takes memory for one block, and for the lines once
// they are asked for: one text each, in an array that moves now and then.
TEST(HTTPRequestMemoryTest, GrowsWithTheNumberOfLinesAtMost) {
  constexpr size_t kLines = 10000;
  std::string bytes = "GET / HTTP/1.1\r\n";
  for (size_t i = 0; i < kLines; ++i) bytes += "A: 1\r\n";
  bytes += "\r\n";
  HTTPRequest request;
  EXPECT_LE(CostOf([&] {
              EXPECT_TRUE(request.Parse(bytes.data(), SizeOf(bytes), true));
              EXPECT_TRUE(request.GetHeader("B").IsEmpty());
            }).calls,
            5u);
  EXPECT_LE(CostOf([&] {
              EXPECT_EQ(request.HeaderLines().Count(), int32_t{kLines});
            }).calls,
            kLines + 30);
}

}  // namespace
