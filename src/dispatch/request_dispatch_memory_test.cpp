// Patched: the memory that a request takes from its first byte to its answer.
#include <gtest/gtest.h>

#include <algorithm>

#include "base/o_array.h"
#include "http/request_progress.h"
#include "test/support/dispatch_fixture.h"
#include "test/support/watched_heap.h"

namespace {

using kova::test::CostOf;
using kova::test::DispatchFixture;

constexpr size_t kReceiveBytes = 16384;

// At least `bytes` bytes of a text again and again.
std::string Repeated(const std::string& text, size_t bytes) {
  std::string all;
  all.reserve(bytes + text.size());
  while (all.size() < bytes) all += text;
  return all;
}

class RequestMemoryTest : public DispatchFixture,
                          public testing::WithParamInterface<size_t> {
 protected:
  RequestMemoryTest() { m_clock.Advance(10000); }

  // Gathers the request as a connection does and has it answered.
  void Serve(const std::string& request) {
    OTypedArray<char> received;
    kova::RequestProgress progress;
    bool isComplete = false;
    for (size_t at = 0; at < request.size(); at += kReceiveBytes) {
      const size_t more = std::min(kReceiveBytes, request.size() - at);
      received.SetSize(static_cast<int32_t>(at + more));
      request.copy(received.Data() + at, more, at);
      isComplete = progress.IsComplete({received.Data(), at + more});
    }
    EXPECT_TRUE(isComplete);
    kova::ByteBuffer answer;
    uint32_t keepOpen = 0;
    kova::DispatchRequest(received.Data(),
                          static_cast<uint32_t>(received.Count()), answer,
                          &keepOpen, m_address);
  }

  void ExpectModest(const char* what, const std::string& request) {
    const size_t peak = CostOf([&] { Serve(request); }).peakBytes;
    EXPECT_LE(peak, 4 * request.size()) << what;
  }

  const kova::test::ScopedLogMask m_quiet{0xE0000000};
  const OString m_address{kova::test::kNarrowClientAddress};
};

TEST_P(RequestMemoryTest, IsAtMostFourTimesItsBytesForQueries) {
  for (const char* const pieces : {"=&", "a=&", "&", "%E9=&", "printe=%&"}) {
    ExpectModest(pieces, Get("/?" + Repeated(pieces, GetParam())));
  }
}

TEST_P(RequestMemoryTest, IsAtMostFourTimesItsBytesForFormBodies) {
  for (const char* const pieces : {"=&", "a=&", "%%%=&", "\xE9=&"}) {
    ExpectModest(pieces, Post("/", Repeated(pieces, GetParam())));
  }
}

TEST_P(RequestMemoryTest, IsAtMostFourTimesItsBytesForHeaderLines) {
  for (const char* const lines : {"x\n", "x\r\n", ":\n", "Connectio:x\n"}) {
    ExpectModest(lines, "GET / HTTP/1.1\n" + Repeated(lines, GetParam()) +
                            "Connection: close\n\n");
  }
  ExpectModest("one line", "GET / HTTP/1.1\nConnections: " +
                               std::string(GetParam(), 'x') + "\n\n");
}

// The answer repeats the value: a text has twice its bytes, the line it is in
// too.
TEST_P(RequestMemoryTest, IsAtMostSixTimesItsBytesForAValueThatIsRepeated) {
  const std::string request =
      "GET /\nConnection: " + std::string(GetParam(), 'x') + "\n\n";
  EXPECT_LE(CostOf([&] { Serve(request); }).peakBytes, 6 * request.size());
}

TEST_P(RequestMemoryTest, IsAtMostFourTimesItsBytesForRequestLines) {
  for (const char* const path : {"%41", "%%", "+", "/"}) {
    ExpectModest(path, Get("/" + Repeated(path, GetParam())));
  }
  const std::string many(GetParam(), 'x');
  ExpectModest("method", many + " / HTTP/1.1\n\n");
  ExpectModest("version", "GET / " + many + "\n\n");
  ExpectModest("share", Get("/?share=" + many));
}

INSTANTIATE_TEST_SUITE_P(Sizes, RequestMemoryTest,
                         testing::Values(size_t{256} << 10, size_t{4} << 20,
                                         (size_t{4} << 20) - 8192));

}  // namespace
