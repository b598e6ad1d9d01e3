// Patched: starting by the settings, and the restart thread.
#include "server/network_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "test/support/fake_tick_count.h"
#include "test/support/log_capture.h"
#include "test/support/server_fixture.h"
#include "test/support/server_settings_scope.h"
#include "test/support/test_client.h"

namespace kova {
namespace {

using test::ImportPatch;
using test::kNetworkBidirectional;
using test::kNetworkCommunication;
using test::kServerPort;
using test::kTcpEnabled;
using testing::ElementsAre;

constexpr DWORD kPatienceMs = 20000;
constexpr uint32_t kAllChannels = 0xFFFFFFFF & ~0x04000000u;

// What bind was asked for; the port that it gets is any free one.
std::atomic<int> g_binds;
std::atomic<uint16_t> g_port;
std::atomic<uint32_t> g_address;

const auto g_realBind = &::bind;

int WSAAPI BindToAnyPort(SOCKET socket, const sockaddr* address, int size) {
  sockaddr_in copy = *reinterpret_cast<const sockaddr_in*>(address);
  g_port = ::ntohs(copy.sin_port);
  g_address = ::ntohl(copy.sin_addr.s_addr);
  ++g_binds;
  copy.sin_port = 0;
  return g_realBind(socket, reinterpret_cast<sockaddr*>(&copy), size);
}

int WSAAPI RefuseToBind(SOCKET, const sockaddr*, int) {
  ::WSASetLastError(WSAEADDRINUSE);
  return SOCKET_ERROR;
}

class NetworkMonitorTest : public testing::Test {
 protected:
  NetworkMonitorTest() {
    g_binds = 0;
    m_clock.Advance(100000);
    m_log.Take();
  }
  ~NetworkMonitorTest() override { End(); }

  void End() { ServerObject::Destroy(); }

  WebServerHTTP& Server() { return *ServerObject::Create(); }

  test::ServerSettingsScope m_values;
  test::ScopedLogMask m_mask{kAllChannels};
  test::LogCapture m_log;
  test::FakeTickCount m_clock{1000000000};
};

class BoundToAnyPortTest : public NetworkMonitorTest {
 protected:
  const ImportPatch<decltype(::bind)> m_bind{nullptr, "bind", &BindToAnyPort};
};

TEST_F(BoundToAnyPortTest, ListensOnPort5130OfAllInterfacesByDefault) {
  NetworkMonitor::StartServer(Server());
  EXPECT_EQ(g_port, 5130);
  EXPECT_EQ(g_address, 0u);
  EXPECT_TRUE(Server().IsRunning());
  EXPECT_EQ(Server().Monitor().port, 5130u);
  EXPECT_EQ(m_values.Get(kNetworkBidirectional),
            (test::SettingValue{REG_BINARY, {1}}));
}

TEST_F(BoundToAnyPortTest, ListensOnPort5130WhenThePortHasAnotherSize) {
  const uint16_t port = 4660;
  m_values.Set(kServerPort, REG_BINARY, &port, sizeof(port));
  NetworkMonitor::StartServer(Server());
  EXPECT_EQ(g_port, 5130);
}

TEST_F(BoundToAnyPortTest, BindsTheLoopbackAddressAloneWhenToldTo) {
  m_values.SetByte(kNetworkCommunication, 0);
  NetworkMonitor::StartServer(Server());
  EXPECT_EQ(g_address, 0x7F000001u);
  EXPECT_EQ(m_values.Get(kNetworkBidirectional),
            (test::SettingValue{REG_BINARY, {0}}));
}

TEST_F(BoundToAnyPortTest, WritesTheValueOfTheSwitchAsItIs) {
  m_values.SetByte(kNetworkCommunication, 0x7F);
  NetworkMonitor::StartServer(Server());
  EXPECT_EQ(g_address, 0u);
  EXPECT_EQ(m_values.Get(kNetworkBidirectional),
            (test::SettingValue{REG_BINARY, {0x7F}}));
}

TEST_F(BoundToAnyPortTest, NeitherListensNorWritesWhenTcpIsOff) {
  m_values.SetByte(kTcpEnabled, 0);
  m_values.SetPort(4660);
  NetworkMonitor::StartServer(Server());
  EXPECT_EQ(g_binds, 0);
  EXPECT_FALSE(Server().IsRunning());
  EXPECT_EQ(Server().Monitor().port, 6161u);
  EXPECT_EQ(m_values.Get(kNetworkBidirectional), std::nullopt);
}

TEST_F(BoundToAnyPortTest, KeepsTheComputerNameOfTheStart) {
  wchar_t name[260] = {};
  DWORD units = 260;
  ::GetComputerNameW(name, &units);
  NetworkMonitor::StartServer(Server());
  EXPECT_EQ(Server().Monitor().computerName, name);
}

const wchar_t* g_computerName;
BOOL WINAPI GiveComputerName(LPWSTR buffer, LPDWORD units) {
  *units = static_cast<DWORD>(std::wcslen(g_computerName));
  std::wcscpy(buffer, g_computerName);
  return TRUE;
}

TEST_F(BoundToAnyPortTest, AsksForTheComputerNameAtEveryStart) {
  const ImportPatch<decltype(::GetComputerNameW)> patch(
      nullptr, "GetComputerNameW", &GiveComputerName);
  for (const wchar_t* name : {L"KOVATESTFIRST", L"KOVATESTSECOND"}) {
    g_computerName = name;
    NetworkMonitor::StartServer(Server());
    EXPECT_EQ(Server().Monitor().computerName, name);
    Server().Stop();
    const std::wstring key =
        std::wstring(L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\@") + name;
    EXPECT_EQ(::RegDeleteKeyW(HKEY_LOCAL_MACHINE, key.c_str()), ERROR_SUCCESS);
  }
}

TEST_F(BoundToAnyPortTest, DoesNotWriteAgainWhileItRuns) {
  NetworkMonitor::StartServer(Server());
  m_values.Delete(kNetworkBidirectional);
  NetworkMonitor::StartServer(Server());
  EXPECT_EQ(g_binds, 1);
  EXPECT_EQ(m_values.Get(kNetworkBidirectional), std::nullopt);
}

TEST_F(NetworkMonitorTest, WritesTheSwitchAlsoWhenItCouldNotListen) {
  const ImportPatch<decltype(::bind)> patch(nullptr, "bind", &RefuseToBind);
  NetworkMonitor::StartServer(Server());
  EXPECT_FALSE(Server().IsRunning());
  EXPECT_EQ(m_values.Get(kNetworkBidirectional),
            (test::SettingValue{REG_BINARY, {1}}));
}

TEST_F(NetworkMonitorTest, RestartsWithFreshSettingsWhenSignalled) {
  const uint16_t first = test::FreePort();
  m_values.SetPort(first);
  NetworkMonitor::StartServer(Server());
  const uint16_t second = test::FreePort();
  m_values.SetPort(second);
  m_log.Take();
  EXPECT_TRUE(NetworkMonitor::SignalRestart());
  const std::wstring last =
      L"Info WebServerBase::Run: Starting server on port " +
      std::to_wstring(second);
  ASSERT_TRUE(m_log.WaitFor(last, kPatienceMs));
  EXPECT_THAT(
      m_log.Lines(),
      ElementsAre(L"DetailInfo NetworkMonitor::_RestartServerThread: KOVA "
                  L"restart event triggered",
                  L"Info NetworkMonitor::ServerRestart: Restarting KOVA "
                  L"server...",
                  last));
  {
    const ScopedLock restarted(Server().Monitor().restartLock);
  }
  EXPECT_TRUE(test::TestClient(second).IsConnected());
  EXPECT_FALSE(test::TestClient(first).IsConnected());
}

TEST_F(NetworkMonitorTest, ARestartStopsWhatTheSettingsSwitchedOff) {
  const uint16_t port = test::FreePort();
  m_values.SetPort(port);
  NetworkMonitor::StartServer(Server());
  ASSERT_TRUE(Server().IsRunning());
  m_values.SetByte(kTcpEnabled, 0);
  NetworkMonitor::ServerRestart(Server());
  EXPECT_FALSE(Server().IsRunning());
  EXPECT_FALSE(test::TestClient(port).IsConnected());
  m_values.SetByte(kTcpEnabled, 1);
  NetworkMonitor::ServerRestart(Server());
  EXPECT_TRUE(Server().IsRunning());
}

TEST_F(NetworkMonitorTest, ARestartDoesNotListenAgainOnceAStopHasBegun) {
  m_values.SetPort(test::FreePort());
  NetworkMonitor::StartServer(Server());
  Server().Monitor().ending = true;
  m_log.Take();
  NetworkMonitor::ServerRestart(Server());
  EXPECT_FALSE(Server().IsRunning());
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(L"Info NetworkMonitor::ServerRestart: Restarting "
                          L"KOVA server..."));
}

TEST_F(NetworkMonitorTest, FoldsSignalsThatComeTogether) {
  m_values.SetByte(kTcpEnabled, 0);
  constexpr wchar_t kTriggered[] =
      L"DetailInfo NetworkMonitor::_RestartServerThread: KOVA restart event "
      L"triggered";
  {
    // Holds the first restart back until the others have been signalled.
    const ScopedLock held(Server().Monitor().restartLock);
    NetworkMonitor::SignalRestart();
    ASSERT_TRUE(m_log.WaitFor(kTriggered, kPatienceMs));
    for (int i = 0; i < 5; ++i) NetworkMonitor::SignalRestart();
  }
  Server().Monitor().ending = true;
  End();
  const auto lines = m_log.Lines();
  const auto restarts = std::count(lines.begin(), lines.end(), kTriggered);
  EXPECT_GE(restarts, 1);
  EXPECT_LE(restarts, 2);
}

TEST_F(NetworkMonitorTest, SignalsNobodyWithoutAServer) {
  EXPECT_FALSE(NetworkMonitor::SignalRestart());
  EXPECT_THAT(m_log.Lines(), ElementsAre());
}

TEST_F(NetworkMonitorTest, ForgetsWhatWasAskedOfAnEarlierServer) {
  const HANDLE restart = Server().Monitor().restartEvent;
  End();
  ::SetEvent(restart);
  EXPECT_EQ(Server().Monitor().restartEvent, restart);
  EXPECT_EQ(::WaitForSingleObject(restart, 0), WAIT_TIMEOUT);
  End();
  EXPECT_THAT(m_log.Lines(), testing::Not(testing::Contains(testing::HasSubstr(
                                 L"restart event triggered"))));
}

// A connection that had to be terminated in the middle of it.
HANDLE g_inSetEvent;
BOOL WINAPI NeverSet(HANDLE) {
  ::SignalObjectAndWait(g_inSetEvent, ::GetCurrentThread(), INFINITE, FALSE);
  return FALSE;
}

TEST_F(NetworkMonitorTest, AThreadKilledWhileItSignalsHoldsUpNobody) {
  Server();
  const UniqueKernelHandle came(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  g_inSetEvent = came.Get();
  {
    const ImportPatch<decltype(::SetEvent)> patch(nullptr, "SetEvent",
                                                  &NeverSet);
    const UniqueKernelHandle asker(::CreateThread(
        nullptr, 0,
        [](void*) -> DWORD { return NetworkMonitor::SignalRestart(); }, nullptr,
        0, nullptr));
    ASSERT_EQ(::WaitForSingleObject(came.Get(), kPatienceMs), WAIT_OBJECT_0);
    ::TerminateThread(asker.Get(), 0);
    ASSERT_EQ(::WaitForSingleObject(asker.Get(), kPatienceMs), WAIT_OBJECT_0);
  }
  End();
  EXPECT_EQ(ServerObject::Get(), nullptr);
  Server();
  EXPECT_TRUE(NetworkMonitor::SignalRestart());
}

TEST_F(NetworkMonitorTest, LogsTheEndOfTheRestartThread) {
  Server();
  End();
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(L"DetailInfo NetworkMonitor::_RestartServerThread: "
                          L"shutdown event triggered"));
}

TEST_F(NetworkMonitorTest, EndsTheRestartThreadWith0) {
  const HANDLE self = ::GetCurrentProcess();
  UniqueKernelHandle thread;
  ASSERT_TRUE(::DuplicateHandle(self, Server().Monitor().restartThread.Get(),
                                self, thread.Receive(), 0, FALSE,
                                DUPLICATE_SAME_ACCESS));
  End();
  ASSERT_EQ(::WaitForSingleObject(thread.Get(), kPatienceMs), WAIT_OBJECT_0);
  DWORD exitCode = 4660;
  EXPECT_TRUE(::GetExitCodeThread(thread.Get(), &exitCode));
  EXPECT_EQ(exitCode, 0u);
}

// Taken before it is replaced, not at the first call: the compiler's library
// guards such a first time with a wait that goes through the same import.
const auto g_realWait = &::WaitForMultipleObjects;

// Fails the first two waits of the restart thread.
std::atomic<int> g_failingWaits;
DWORD WINAPI FailSomeWaits(DWORD count, const HANDLE* handles, BOOL all,
                           DWORD timeoutMs) {
  if (g_failingWaits > 0) {
    --g_failingWaits;
    return WAIT_FAILED;
  }
  return g_realWait(count, handles, all, timeoutMs);
}

TEST_F(NetworkMonitorTest, GoesOnAfterAFailedWait) {
  constexpr wchar_t kErrant[] =
      L"Error NetworkMonitor::_RestartServerThread: errant event triggered";
  m_values.SetByte(kTcpEnabled, 0);
  g_failingWaits = 2;
  const ImportPatch<decltype(::WaitForMultipleObjects)> patch(
      nullptr, "WaitForMultipleObjects", &FailSomeWaits);
  Server();
  while (g_failingWaits > 0) std::this_thread::yield();
  End();
  EXPECT_THAT(m_log.Lines(),
              ElementsAre(kErrant, kErrant,
                          L"DetailInfo NetworkMonitor::_RestartServerThread: "
                          L"shutdown event triggered"));
}

HANDLE WINAPI CreateNoEvent(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) {
  ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
  return nullptr;
}

TEST_F(NetworkMonitorTest, EndsAlsoWithoutItsEvents) {
  ServerObject::CloseRestartEvent();
  {
    const ImportPatch<decltype(::CreateEventW)> patch(nullptr, "CreateEventW",
                                                      &CreateNoEvent);
    Server();
  }
  EXPECT_FALSE(NetworkMonitor::SignalRestart());
  ASSERT_TRUE(m_log.WaitFor(
      L"Error NetworkMonitor::_RestartServerThread: errant event triggered",
      kPatienceMs));
  End();
  EXPECT_EQ(ServerObject::Get(), nullptr);
}

uintptr_t __cdecl StartNoThread(void*, unsigned, unsigned(__stdcall*)(void*),
                                void*, unsigned, unsigned*) {
  errno = EAGAIN;
  return 0;
}

TEST_F(NetworkMonitorTest, StopsAServerWithoutARestartThread) {
  {
    const ImportPatch<decltype(::_beginthreadex)> patch(
        nullptr, "_beginthreadex", &StartNoThread);
    Server();
  }
  EXPECT_TRUE(NetworkMonitor::SignalRestart());
  End();
  EXPECT_EQ(ServerObject::Get(), nullptr);
}

}  // namespace
}  // namespace kova
