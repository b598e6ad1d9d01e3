// Patched: how much memory a request asks for.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "http/http_request.h"
#include "test/support/import_patch.h"

namespace {

using kova::test::ImportPatch;

std::atomic<size_t> g_calls;
std::atomic<size_t> g_bytes;
void* (*g_realMalloc)(size_t) = nullptr;

void* CountedMalloc(size_t bytes) {
  ++g_calls;
  g_bytes += bytes;
  return g_realMalloc(bytes);
}

// What `run` allocates. All that a request asks for comes from operator new.
struct Cost {
  size_t calls;
  size_t bytes;
};

template <typename Run>
Cost CostOf(const Run& run) {
  const ImportPatch<void*(size_t)> patch(nullptr, "malloc", &CountedMalloc);
  g_realMalloc = patch.Original();
  g_calls = g_bytes = 0;
  run();
  return {g_calls, g_bytes};
}

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

TEST(HTTPRequestMemoryTest, IsNotTakenForABodyThatIsLeftInPlace) {
  const std::string& whole = BigRequest();
  const auto leave = [&] {
    HTTPRequest request;
    EXPECT_TRUE(request.ParseLeavingBody(whole.data(), SizeOf(whole), true));
  };
  const auto copy = [&] {
    HTTPRequest request;
    EXPECT_TRUE(request.Parse(whole.data(), SizeOf(whole), true));
  };
  EXPECT_LT(CostOf(leave).bytes, 5000u);
  EXPECT_GE(CostOf(copy).bytes, 1000000u);
  EXPECT_LT(CostOf(copy).bytes, 1005000u);
}

// Method, path, version: one text each, and the default path that the parsed
// one replaces. The header block. Two form fields of two texts, in arrays that
// grow from one to five elements.
TEST(HTTPRequestMemoryTest, IsTakenOnceForEachFieldKept) {
  const Cost cost = CostOf([] {
    HTTPRequest request;
    EXPECT_TRUE(request.ParseLeavingBody(BigRequest().data(),
                                         SizeOf(BigRequest()), true));
  });
  EXPECT_LE(cost.calls, 4u + 1u + 4u + 4u);
}

TEST(HTTPRequestMemoryTest, IsNotNeededToFindAFormValue) {
  HTTPRequest request;
  const std::string bytes = kHead + "\r\n";
  EXPECT_TRUE(request.Parse(bytes.data(), SizeOf(bytes), true));
  const Cost cost = CostOf([&] {
    EXPECT_FALSE(request.GetFormValue("page").IsEmpty());
    EXPECT_TRUE(request.GetFormValue("share").IsEmpty());
  });
  EXPECT_EQ(cost.calls, 0u);
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
