// Whole: the built sample extension through its seven exports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "loaded_extension.h"
#include "test/support/watched_heap.h"

namespace {

using ::kova::test::LoadedExtension;
using ::kova::test::WatchedHeap;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string Get(const std::string& query) {
  return "GET /?" + query + " HTTP/1.1\r\nHost: printers\r\n\r\n";
}

std::string Post(const std::string& query, const std::string& type,
                 const std::string& body) {
  return "POST /?" + query + " HTTP/1.1\r\nContent-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

std::string Body(const std::string& response) {
  const size_t end = response.find("\r\n\r\n");
  return end == std::string::npos ? "" : response.substr(end + 4);
}

std::string ContentLengthOf(const std::string& response) {
  return "\r\nContent-Length: " + std::to_string(Body(response).size()) +
         "\r\n";
}

class SampleExtensionTest : public ::testing::Test {
 protected:
  LoadedExtension m_extension;
};

TEST_F(SampleExtensionTest, SpeaksVersionOneAndNoOther) {
  std::vector<uint32_t> versions(11, 0);
  m_extension.versions(versions.data(), 10);
  EXPECT_EQ(versions[0], 1u);
  for (size_t i = 1; i < versions.size(); ++i) EXPECT_EQ(versions[i], 0u);
}

TEST_F(SampleExtensionTest, WritesNoVersionIntoAnArrayWithoutRoom) {
  uint32_t version = 0;
  m_extension.versions(&version, 0);
  EXPECT_EQ(version, 0u);
  m_extension.versions(nullptr, 10);
}

TEST_F(SampleExtensionTest, InitialisesToOneContextAndTakesTheRoutine) {
  EXPECT_NE(m_extension.context, nullptr);
  EXPECT_EQ(m_extension.initialize(), m_extension.context);
  m_extension.setRestart(+[] {});
}

TEST_F(SampleExtensionTest, AnswersGetWithAPageThatShowsTheRequest) {
  const std::string response = m_extension.Ask(Get("printer=Lobby"));
  EXPECT_THAT(response, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(response,
              HasSubstr("\r\nContent-Type: text/html; charset=utf-8\r\n"));
  EXPECT_THAT(response, HasSubstr(ContentLengthOf(response)));
  EXPECT_THAT(response, HasSubstr("\r\nConnection: close\r\n"));
  EXPECT_THAT(response, HasSubstr("<h1 id=\"name\">Lobby</h1>"));
  EXPECT_THAT(response, HasSubstr("GET /?printer=Lobby HTTP/1.1\nHost: pri"));
  EXPECT_THAT(response, HasSubstr("received from 192.0.2.7:50123</h2>"));
  EXPECT_THAT(response, Not(HasSubstr("{{")));
}

TEST_F(SampleExtensionTest, CountsWhatItAnswers) {
  const auto counter = [](const std::string& response) {
    return std::atoi(response.c_str() + response.find("\"answered\">") + 11);
  };
  const int first = counter(m_extension.Ask(Get("printer=P")));
  EXPECT_GT(first, 0);
  EXPECT_EQ(counter(m_extension.Ask(Get("printer=P"))), first + 1);
}

TEST_F(SampleExtensionTest, EscapesEverythingThatCameFromOutside) {
  const std::string response = m_extension.Ask(
      "GET /?printer=%3Cscript%3E%22%27%26x%01 HTTP/1.1\r\n"
      "X: <b>\"'&\x01\r\n\r\n");
  EXPECT_THAT(response, Not(HasSubstr("<script>")));
  EXPECT_THAT(response, Not(HasSubstr("<b>")));
  EXPECT_THAT(response,
              HasSubstr("<h1 id=\"name\">&lt;script&gt;&quot;&#39;&amp;x"
                        "\xEF\xBF\xBD</h1>"));
  EXPECT_THAT(response, HasSubstr("X: &lt;b&gt;&quot;&#39;&amp;\xEF\xBF\xBD"));
  EXPECT_THAT(response, HasSubstr("value=\"&lt;script&gt;&quot;&#39;&amp;x"));
}

TEST_F(SampleExtensionTest, LeavesPlacesAloneThatAValueSpells) {
  const std::string response =
      m_extension.Ask(Get("printer=%7B%7Bstyle%7D%7D"));
  EXPECT_THAT(response, HasSubstr("<h1 id=\"name\">{{style}}</h1>"));
}

TEST_F(SampleExtensionTest, ShowsTheBeginningOfAVeryLongRequest) {
  const std::string request = Get("printer=P&x=" + std::string(20000, 'a'));
  const std::string response = m_extension.Ask(request);
  EXPECT_THAT(response,
              HasSubstr("... and " + std::to_string(request.size() - 8192) +
                        " bytes more"));
  EXPECT_LT(response.size(), 20000u);
}

TEST_F(SampleExtensionTest, AnswersHeadWithTheHeadersAlone) {
  const std::string response =
      m_extension.Ask("HEAD /?printer=P HTTP/1.1\r\n\r\n");
  EXPECT_THAT(response, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(response, EndsWith("\r\n\r\n"));
  EXPECT_THAT(response, Not(HasSubstr("Content-Length: 0\r\n")));
  EXPECT_EQ(Body(response), "");
}

TEST_F(SampleExtensionTest, AnswersPostWithWhatWasPosted) {
  const std::string body("a\0<b>\xFF\r\n\r\nz", 11);
  const std::string response =
      m_extension.Ask(Post("printer=P", "application/octet-stream", body));
  EXPECT_THAT(response, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_EQ(Body(response), body);
  EXPECT_THAT(response, HasSubstr("\r\nContent-Length: 11\r\n"));
  EXPECT_THAT(response, HasSubstr("\r\nContent-Type: text/plain; charset="));
}

TEST_F(SampleExtensionTest, AsksAgainForABodyThatHadNotArrived) {
  uint32_t keepOpen = 1;
  const std::string response = m_extension.Ask(
      "POST /?printer=P&keep=1 HTTP/1.1\r\nContent-Length: 4\r\n\r\n",
      &keepOpen);
  EXPECT_THAT(response, StartsWith("HTTP/1.1 408 Request Timeout\r\n"));
  EXPECT_THAT(response, HasSubstr("\r\nConnection: close\r\n"));
  EXPECT_EQ(keepOpen, 0u);
}

TEST_F(SampleExtensionTest, RefusesOtherMethods) {
  const std::string response =
      m_extension.Ask("DELETE /?printer=P HTTP/1.1\r\n\r\n");
  EXPECT_THAT(response, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n"));
  EXPECT_THAT(response, HasSubstr("\r\nAllow: GET, HEAD, POST\r\n"));
}

TEST_F(SampleExtensionTest, KeepsTheConnectionWhenAsked) {
  uint32_t keepOpen = 0;
  const std::string kept = m_extension.Ask(Get("printer=P&KEEP=1"), &keepOpen);
  EXPECT_EQ(keepOpen, 1u);
  EXPECT_THAT(kept, HasSubstr("\r\nConnection: keep-alive\r\n"));
  EXPECT_THAT(kept, HasSubstr(ContentLengthOf(kept)));
  EXPECT_THAT(kept, HasSubstr("Kept open"));
  // The server never takes the flag back, so the next answer must.
  const std::string closed = m_extension.Ask(Get("printer=P"), &keepOpen);
  EXPECT_EQ(keepOpen, 0u);
  EXPECT_THAT(closed, HasSubstr("\r\nConnection: close\r\n"));
}

TEST_F(SampleExtensionTest, TakesTheKeepFieldFromAFormBodyToo) {
  uint32_t keepOpen = 0;
  const std::string form = "application/x-www-form-urlencoded";
  m_extension.Ask(Post("printer=P", form, "text=a+b&keep=1"), &keepOpen);
  EXPECT_EQ(keepOpen, 1u);
  m_extension.Ask(Post("printer=P", form, "keep=2"), &keepOpen);
  EXPECT_EQ(keepOpen, 0u);
  m_extension.Ask(Post("printer=P", "text/plain", "keep=1"), &keepOpen);
  EXPECT_EQ(keepOpen, 0u);
}

TEST_F(SampleExtensionTest, ClosesWhenBytesAreLeftOverBehindTheRequest) {
  uint32_t keepOpen = 1;
  m_extension.Ask(Get("printer=P&keep=1") + "GET", &keepOpen);
  EXPECT_EQ(keepOpen, 0u);
}

TEST_F(SampleExtensionTest, FailsOnNullsInsteadOfFaulting) {
  uint32_t keepOpen = 0;
  EXPECT_EQ(m_extension.handle(nullptr, "x", 1, L"", 0, &keepOpen), nullptr);
  EXPECT_EQ(m_extension.length(m_extension.context, nullptr), 0u);
  char byte = 0;
  EXPECT_EQ(m_extension.copy(m_extension.context, nullptr, &byte, 1), 0);
  m_extension.release(m_extension.context, nullptr);
}

TEST_F(SampleExtensionTest, CopiesNothingIntoABufferThatIsTooSmall) {
  uint32_t keepOpen = 0;
  const std::string request = Get("printer=P");
  KOVA_Response response = m_extension.handle(
      m_extension.context, request.data(),
      static_cast<uint32_t>(request.size()), L"", 0, &keepOpen);
  const uint32_t length = m_extension.length(m_extension.context, response);
  std::string buffer(length, '\1');
  EXPECT_EQ(m_extension.copy(m_extension.context, response, buffer.data(),
                             length - 1),
            0);
  EXPECT_EQ(buffer, std::string(length, '\1'));
  EXPECT_NE(
      m_extension.copy(m_extension.context, response, buffer.data(), length),
      0);
  m_extension.release(m_extension.context, response);
}

// A request cut at any byte gets some answer, and never a fault.
TEST_F(SampleExtensionTest, AnswersARequestCutAnywhere) {
  const std::string whole =
      Post("printer=P&x=%41", "application/x-www-form-urlencoded", "a=%4&b=%");
  for (size_t length = 1; length <= whole.size(); ++length) {
    const std::string response = m_extension.Ask(whole.substr(0, length));
    EXPECT_THAT(response, StartsWith("HTTP/1.1 ")) << "cut at " << length;
  }
}

TEST_F(SampleExtensionTest, FreesWhatARequestAllocated) {
  m_extension.Ask(Get("printer=P"));
  const WatchedHeap heap(m_extension.Module());
  for (int i = 0; i < 50; ++i) {
    m_extension.Ask(Get("printer=P&share=S"));
    m_extension.Ask(Post("printer=P", "text/plain", "body"));
  }
  EXPECT_EQ(heap.LiveBlocks(), 0);
}

TEST_F(SampleExtensionTest, LetsNoExceptionOutWhenMemoryRunsOut) {
  m_extension.Ask(Get("printer=P"));
  size_t nth = 1;
  for (;; ++nth) {
    const WatchedHeap heap(m_extension.Module());
    heap.RefuseNth(nth);
    const std::string response = m_extension.Ask(Get("printer=P&keep=1"));
    if (heap.RefusedBytes() == 0) break;
    EXPECT_EQ(response, "") << "allocation " << nth;
    ASSERT_LT(nth, 1000u);
  }
  EXPECT_GT(nth, 6u);
}

TEST_F(SampleExtensionTest, AnswersEightThreadsAtOnce) {
  m_extension.Ask(Get("printer=P"));
  const WatchedHeap heap(m_extension.Module());
  std::atomic<int> wrong{0};
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 8; ++thread) {
      threads.emplace_back([this, thread, &wrong] {
        const std::string name = "Printer" + std::to_string(thread);
        const std::string heading = "<h1 id=\"name\">" + name + "</h1>";
        for (int i = 0; i < 50; ++i) {
          const std::string page = m_extension.Ask(Get("printer=" + name));
          const std::string echo =
              m_extension.Ask(Post("printer=P", "text/plain", name));
          if (page.find(heading) == std::string::npos) ++wrong;
          if (Body(echo) != name) ++wrong;
        }
      });
    }
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(heap.LiveBlocks(), 0);
}

}  // namespace
