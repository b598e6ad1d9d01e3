// Patched: the HTTP server object and its restart thread.
#include "net/web_server_http.h"

#include "http/request_progress.h"
#include "test/net/listener_fixture.h"
#include "test/support/import_patch.h"

namespace {

using kova::UniqueKernelHandle;
using kova::test::Call;
using kova::test::ImportPatch;
using kova::test::kSoonMs;
using kova::test::WindowsCalls;

// Ends when told to, or at the restart event, as a monitor's thread would.
unsigned __stdcall RestartThread(void* server) {
  NetworkMonitorState& monitor = static_cast<WebServerHTTP*>(server)->Monitor();
  const HANDLE events[] = {monitor.shutdownEvent.Get(), monitor.restartEvent};
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
    EXPECT_TRUE(m_server->JoinRestartThread());
  }

  WindowsCalls m_windows;
  const UniqueKernelHandle m_restart{
      ::CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  std::unique_ptr<WebServerHTTP> m_server =
      std::make_unique<WebServerHTTP>(&RestartThread, m_restart.Get());
};

TEST_F(WebServerHTTPTest, StartsItsRestartThreadWithItself) {
  const NetworkMonitorState& monitor = m_server->Monitor();
  EXPECT_EQ(m_windows.ThreadsBegun(), 1u);
  EXPECT_TRUE(monitor.restartThread.IsValid());
  EXPECT_NE(monitor.restartThreadId, 0u);
  EXPECT_EQ(monitor.port, 6161u);
  EXPECT_NE(monitor.logger, nullptr);
  EXPECT_FALSE(m_server->IsRunning());
}

TEST_F(WebServerHTTPTest, JoinsItsRestartThread) {
  ::SetEvent(m_server->Monitor().shutdownEvent.Get());
  EXPECT_TRUE(m_server->JoinRestartThread());
  EXPECT_FALSE(m_server->Monitor().restartThread.IsValid());
  EXPECT_TRUE(m_server->JoinRestartThread());
  EXPECT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(0), WAIT_OBJECT_0);
  EXPECT_EQ(m_windows.OpenHandles(), 0u);
}

// A thread that has a reference to the library ends when it can.
TEST_F(WebServerHTTPTest, WaitsForTheLastTouchOfItsRestartThreadAlone) {
  ::SetEvent(m_server->Monitor().shutdownEvent.Get());
  EXPECT_TRUE(m_server->JoinRestartThread());
  EXPECT_EQ(m_windows.Calls(Call::kAwaitEnd), 0);
}

BOOL WINAPI RefuseModule(DWORD, LPCWSTR, HMODULE*) { return FALSE; }

TEST_F(WebServerHTTPTest, WaitsForTheEndOfAThreadWithoutAReference) {
  const ImportPatch<decltype(GetModuleHandleExW)> patch(
      nullptr, "GetModuleHandleExW", &RefuseModule);
  WebServerHTTP server(&RestartThread, nullptr);
  ::SetEvent(server.Monitor().shutdownEvent.Get());
  EXPECT_TRUE(server.JoinRestartThread());
  EXPECT_EQ(m_windows.Calls(Call::kAwaitEnd), 1);
}

DWORD WINAPI FailToWait(DWORD, const HANDLE*, WINBOOL, DWORD) {
  return WAIT_FAILED;
}
void WINAPI DoNotSleep(DWORD) {}

TEST_F(WebServerHTTPTest, GivesUpJoiningWhereTheWaitFailsForEver) {
  {
    const ImportPatch<decltype(WaitForMultipleObjects)> wait(
        nullptr, "WaitForMultipleObjects", &FailToWait);
    const ImportPatch<decltype(Sleep)> sleep(nullptr, "Sleep", &DoNotSleep);
    EXPECT_FALSE(m_server->JoinRestartThread());
  }
  EXPECT_TRUE(m_server->Monitor().restartThread.IsValid());
}

TEST_F(WebServerHTTPTest, TakesTheRestartEventThatItIsGiven) {
  NetworkMonitorState& monitor = m_server->Monitor();
  EXPECT_EQ(monitor.restartEvent, m_restart.Get());
  ::SetEvent(monitor.restartEvent);
  EXPECT_TRUE(m_windows.ThreadEnds(0, kSoonMs));
  EXPECT_EQ(m_windows.ExitCode(0), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(::WaitForSingleObject(monitor.shutdownEvent.Get(), 0),
            WAIT_TIMEOUT);
}

TEST_F(WebServerHTTPTest, LivesWithoutARestartThread) {
  m_windows.Fail(Call::kBeginThread, EAGAIN);
  WebServerHTTP server(&RestartThread, nullptr);
  EXPECT_FALSE(server.Monitor().restartThread.IsValid());
  EXPECT_TRUE(server.JoinRestartThread());
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
  kova::RequestProgress progress;
  EXPECT_FALSE(m_server->IsRequestComplete(bytes, progress));
  for (size_t length = 1; length <= request.size(); ++length) {
    const bool complete = length == headers.size() || length == request.size();
    EXPECT_EQ(m_server->IsRequestComplete(
                  Fill(bytes, request.substr(0, length)), progress),
              complete)
        << length;
  }
}

}  // namespace
