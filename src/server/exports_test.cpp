// Patched: the exports, in this program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kova/server.h"
#include "server/network_monitor.h"
#include "test/support/fake_tick_count.h"
#include "test/support/log_capture.h"
#include "test/support/server_fixture.h"
#include "test/support/server_settings_scope.h"
#include "test/support/test_client.h"

namespace kova {
namespace {

using test::ImportPatch;
using testing::ElementsAre;

constexpr uint32_t kAllChannels = 0xFFFFFFFF & ~0x04000000u;
constexpr uint32_t kDefaultChannels = 0xE0000000;
constexpr uint32_t kShowAll = 0x08000000;

constexpr wchar_t kEnterStart[] = L"DetailInfoH _StartKOVAServer: Enter";
constexpr wchar_t kEnterStop[] = L"DetailInfoH _StopKOVAServer: Enter";
constexpr wchar_t kRestartThreadEnds[] =
    L"DetailInfo NetworkMonitor::_RestartServerThread: shutdown event "
    L"triggered";

// Makes the looks of a release quick, without using up its grace time.
void WINAPI ShortSleep(DWORD) { ::SleepEx(5, FALSE); }

class LifecycleTest : public testing::Test {
 protected:
  LifecycleTest() { UseMask(kAllChannels); }
  ~LifecycleTest() override { StopKOVAServer(); }

  void UseMask(uint32_t mask) {
    test::SetLogMask(mask);
    m_clock.Advance(100000);
  }
  std::wstring StartingLine() const {
    return L"Info WebServerBase::Run: Starting server on port " +
           std::to_wstring(m_port);
  }
  bool IsListening() const { return test::TestClient(m_port).IsConnected(); }

  test::ServerSettingsScope m_values;
  test::ScopedLogMask m_mask{kAllChannels};
  const uint16_t m_port = test::FreePort();
  const bool m_isPortSet = m_values.SetPort(m_port);
  test::FakeTickCount m_clock{2000000000};
  test::LogCapture m_log;
};

TEST_F(LifecycleTest, StartsAndStopsWithTheseLinesInThisOrder) {
  StartKOVAServer();
  EXPECT_TRUE(ServerObject::Get()->IsRunning());
  StopKOVAServer();
  EXPECT_EQ(ServerObject::Get(), nullptr);
  EXPECT_THAT(m_log.Lines(), ElementsAre(kEnterStart, StartingLine(),
                                         kEnterStop, kRestartThreadEnds));
}

TEST_F(LifecycleTest, DoesNotWriteTheEnterLinesByDefault) {
  UseMask(kDefaultChannels | kShowAll);
  StartKOVAServer();
  StopKOVAServer();
  EXPECT_THAT(m_log.Lines(), ElementsAre(StartingLine()));
}

TEST_F(LifecycleTest, StoppingWithoutAServerLogsItsEntryAndReturns) {
  StopKOVAServer();
  EXPECT_THAT(m_log.Lines(), ElementsAre(kEnterStop));
}

TEST_F(LifecycleTest, ASecondStartKeepsTheServerAndItsListener) {
  StartKOVAServer();
  WebServerHTTP* const server = ServerObject::Get();
  m_log.Take();
  StartKOVAServer();
  EXPECT_EQ(ServerObject::Get(), server);
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kEnterStart,
                          L"DetailInfo WebServerBase::Run: Server is already "
                          L"running"));
  EXPECT_TRUE(IsListening());
}

TEST_F(LifecycleTest, AStartAfterAStopBuildsAFreshServer) {
  StartKOVAServer();
  const unsigned first = ServerObject::Get()->Monitor().restartThreadId;
  StopKOVAServer();
  EXPECT_FALSE(IsListening());
  StartKOVAServer();
  EXPECT_TRUE(IsListening());
  EXPECT_NE(ServerObject::Get()->Monitor().restartThreadId, first);
}

const auto g_realSetEvent = &::SetEvent;

// The order is part of the contract: a restart that begins now must not listen.
std::atomic<int> g_runningWhenSet;
BOOL WINAPI NoteRunning(HANDLE event) {
  WebServerHTTP* const server = ServerObject::Get();
  if (server != nullptr && event == server->Monitor().shutdownEvent.Get()) {
    g_runningWhenSet = server->IsRunning() ? 1 : 0;
  }
  return g_realSetEvent(event);
}

TEST_F(LifecycleTest, StopsTheListenerBeforeItEndsTheRestartThread) {
  StartKOVAServer();
  ASSERT_TRUE(ServerObject::Get()->IsRunning());
  g_runningWhenSet = -1;
  const ImportPatch<decltype(::SetEvent)> patch(nullptr, "SetEvent",
                                                &NoteRunning);
  StopKOVAServer();
  EXPECT_EQ(g_runningWhenSet, 0);
}

TEST_F(LifecycleTest, StopEndsTheConnectionsThatAreOpen) {
  StartKOVAServer();
  test::TestClient idle(m_port);
  test::TestClient half(m_port);
  half.Send("GET / HT");
  ASSERT_TRUE(idle.IsConnected() && half.IsConnected());
  ASSERT_TRUE(m_log.WaitFor(
      L"DetailInfoE Network_ClientThread::Run: HTTPRequest::IsComplete "
      L"returned false, looping",
      10000));
  StopKOVAServer();
  idle.ReceiveAll();
  EXPECT_TRUE(idle.ClosedByPeer());
  half.ReceiveAll();
  EXPECT_TRUE(half.ClosedByPeer());
}

TEST_F(LifecycleTest, StopWaitsForARestartInFlight) {
  const ImportPatch<decltype(::Sleep)> patch(nullptr, "Sleep", &ShortSleep);
  for (int round = 0; round < 100; ++round) {
    StartKOVAServer();
    const test::TestClient client(m_port);
    NetworkMonitor::SignalRestart();
    if (round % 2 == 0) std::this_thread::yield();
    StopKOVAServer();
    ASSERT_EQ(ServerObject::Get(), nullptr);
    ASSERT_FALSE(IsListening()) << round;
  }
}

TEST_F(LifecycleTest, SignalsRestartsWhileItStartsAndStops) {
  const ImportPatch<decltype(::Sleep)> patch(nullptr, "Sleep", &ShortSleep);
  std::atomic<bool> done = false;
  std::vector<std::thread> askers;
  for (int i = 0; i < 4; ++i) {
    askers.emplace_back([&] {
      while (!done) {
        NetworkMonitor::SignalRestart();
        std::this_thread::yield();
      }
    });
  }
  std::thread client([&] {
    while (!done) test::TestClient(m_port).Send("GET / HTTP/1.1\r\n\r\n");
  });
  for (int round = 0; round < 60; ++round) {
    StartKOVAServer();
    StopKOVAServer();
    ASSERT_EQ(ServerObject::Get(), nullptr);
  }
  done = true;
  client.join();
  for (std::thread& asker : askers) asker.join();
  EXPECT_FALSE(IsListening());
}

}  // namespace
}  // namespace kova
