// Patched: the HTTP server object and its restart thread.
#include "net/web_server_http.h"

#include "net/server_fixture.h"

namespace {

using kova::test::Call;
using kova::test::CallWatch;
using kova::test::kSoonMs;

// Ends when told to, or at the restart event, as a monitor's thread would.
unsigned __stdcall RestartThread(void* server) {
  NetworkMonitorState& monitor = static_cast<WebServerHTTP*>(server)->Monitor();
  const HANDLE events[] = {monitor.shutdownEvent.Get(),
                           monitor.restartEvent.Get()};
  const DWORD woken = ::WaitForMultipleObjects(2, events, FALSE, kSoonMs);
  ::SetEvent(monitor.endedEvent.Get());
  return woken;
}

OTypedArray<char>& Fill(OTypedArray<char>& bytes, const std::string& text) {
  bytes.SetSize(static_cast<int32_t>(text.size()));
  std::copy(text.begin(), text.end(), bytes.Data());
  return bytes;
}

class WebServerHTTPTest : public testing::Test {
 protected:
  ~WebServerHTTPTest() override {
    if (m_server == nullptr) return;
    ::SetEvent(m_server->Monitor().shutdownEvent.Get());
    m_server->JoinRestartThread();
  }

  CallWatch m_watch;
  std::unique_ptr<WebServerHTTP> m_server =
      std::make_unique<WebServerHTTP>(&RestartThread);
};

TEST_F(WebServerHTTPTest, StartsItsRestartThreadWithItself) {
  const NetworkMonitorState& monitor = m_server->Monitor();
  EXPECT_EQ(m_watch.ThreadsBegun(), 1u);
  EXPECT_TRUE(monitor.restartThread.IsValid());
  EXPECT_NE(monitor.restartThreadId, 0u);
  EXPECT_EQ(monitor.port, 6161u);
  EXPECT_NE(monitor.logger, nullptr);
  EXPECT_FALSE(m_server->IsRunning());
}

TEST_F(WebServerHTTPTest, JoinsItsRestartThread) {
  ::SetEvent(m_server->Monitor().shutdownEvent.Get());
  m_server->JoinRestartThread();
  EXPECT_TRUE(m_watch.ThreadEnds(0, 0));
  EXPECT_EQ(m_watch.ExitCode(0), WAIT_OBJECT_0);
  EXPECT_FALSE(m_server->Monitor().restartThread.IsValid());
  m_server->JoinRestartThread();
  EXPECT_EQ(m_watch.OpenHandles(), 0u);
}

TEST_F(WebServerHTTPTest, ItsEventsAreUnsignalledAndResetThemselves) {
  NetworkMonitorState& monitor = m_server->Monitor();
  ::SetEvent(monitor.restartEvent.Get());
  EXPECT_TRUE(m_watch.ThreadEnds(0, kSoonMs));
  EXPECT_EQ(m_watch.ExitCode(0), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(::WaitForSingleObject(monitor.restartEvent.Get(), 0), WAIT_TIMEOUT);
  EXPECT_EQ(::WaitForSingleObject(monitor.shutdownEvent.Get(), 0),
            WAIT_TIMEOUT);
}

TEST_F(WebServerHTTPTest, LivesWithoutARestartThread) {
  m_watch.Fail(Call::kBeginThread, EAGAIN);
  WebServerHTTP server(&RestartThread);
  EXPECT_FALSE(server.Monitor().restartThread.IsValid());
  server.JoinRestartThread();
}

TEST_F(WebServerHTTPTest, IgnoresClientsAndResponses) {
  EXPECT_EQ(m_server->OnClientConnected("1.2.3.4:5", 5), 0);
  EXPECT_EQ(m_server->OnResponseSent(1), 0);
}

// A request whose headers have come alone counts as complete: see HTTPRequest.
TEST_F(WebServerHTTPTest, ARequestIsCompleteWithoutOrWithItsWholeBody) {
  const std::string headers = "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\n";
  const std::string request = headers + "a=b";
  OTypedArray<char> bytes;
  EXPECT_FALSE(m_server->IsRequestComplete(bytes));
  for (size_t length = 1; length <= request.size(); ++length) {
    const bool complete = length == headers.size() || length == request.size();
    EXPECT_EQ(
        m_server->IsRequestComplete(Fill(bytes, request.substr(0, length))),
        complete)
        << length;
  }
}

}  // namespace
