#include "server/network_monitor.h"

#include <atomic>
#include <new>

#include "base/module_reference.h"
#include "base/this_computer.h"
#include "crash/guard.h"
#include "log/log_line.h"
#include "server/server_settings.h"

using kova::LogLine;
using tk::LogChannel;

namespace {

constexpr const char* kRestartThread = "NetworkMonitor::_RestartServerThread";
constexpr uint32_t kAllInterfaces = 0;
constexpr uint32_t kLoopback = 0x7F000001;

constinit std::atomic<WebServerHTTP*> g_server = nullptr;

// Made for the first server and kept for all that follow: an extension's thread
// may be about to signal it while a server goes, and must neither wait for that
// nor signal a handle that is closed.
constinit std::atomic<HANDLE> g_restartEvent = nullptr;

// Unsignalled; what was asked of an earlier server is forgotten.
HANDLE FreshRestartEvent() {
  if (g_restartEvent == nullptr) {
    g_restartEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  } else {
    ::ResetEvent(g_restartEvent);
  }
  return g_restartEvent;
}

enum class Woken { kRestart, kShutdown, kErrant };

// The handles are read afresh at every wait.
Woken WaitForRequest(const NetworkMonitorState& monitor) {
  const HANDLE events[] = {monitor.restartEvent, monitor.shutdownEvent.Get()};
  switch (::WaitForMultipleObjects(2, events, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
      return Woken::kRestart;
    case WAIT_OBJECT_0 + 1:
      return Woken::kShutdown;
    default:
      return Woken::kErrant;
  }
}

unsigned ServeRestarts(void* argument) {
  auto& server = *static_cast<WebServerHTTP*>(argument);
  NetworkMonitorState& monitor = server.Monitor();
  for (;;) {
    const bool ending = monitor.ending;
    switch (WaitForRequest(monitor)) {
      case Woken::kRestart:
        LogLine(LogChannel::DetailInfo, kRestartThread)
            << L"KOVA restart event triggered";
        NetworkMonitor::ServerRestart(server);
        break;
      case Woken::kShutdown:
        LogLine(LogChannel::DetailInfo, kRestartThread)
            << L"shutdown event triggered";
        return 0;
      case Woken::kErrant:
        LogLine(LogChannel::Error, kRestartThread) << L"errant event triggered";
        // A server whose events could not be made must still come to its end;
        // one whose events work sees the shutdown event at the next wait.
        if (ending) return 0;
        break;
    }
  }
}

}  // namespace

void NetworkMonitor::StartServer(WebServerHTTP& server) {
  NetworkMonitorState& monitor = server.Monitor();
  const ScopedLock held(monitor.restartLock);
  monitor.computerName = kova::ComputerName();
  kova::ServerSettings settings(monitor.computerName);
  if (!settings.IsTcpEnabled()) return;

  monitor.port = settings.Port();
  const uint8_t communication = settings.NetworkCommunication();
  const uint32_t address = communication != 0 ? kAllInterfaces : kLoopback;
  // Deliberate: the accept thread's answer is enough, listening or not.
  if (server.Run(monitor.port, 0, address) == 0) return;
  settings.WriteNetworkBidirectional(communication);
}

void NetworkMonitor::ServerRestart(WebServerHTTP& server) {
  NetworkMonitorState& monitor = server.Monitor();
  const ScopedLock held(monitor.restartLock);
  LogLine(monitor.logger, LogChannel::Info, "NetworkMonitor::ServerRestart")
      << L"Restarting KOVA server...";
  server.Stop();
  // A stop that has begun meanwhile is not kept waiting for a listener.
  if (!monitor.ending) StartServer(server);
}

unsigned __stdcall NetworkMonitor::_RestartServerThread(void* server) {
  // Read first: once the event is set, the server object may be gone.
  const NetworkMonitorState& monitor =
      static_cast<WebServerHTTP*>(server)->Monitor();
  const HMODULE reference = monitor.moduleReference;
  const HANDLE ended = monitor.endedEvent.Get();
  const unsigned result = kova::RunGuarded(&ServeRestarts, server);
  if (ended != nullptr) ::SetEvent(ended);
  kova::EndThread(reference, result);
}

BOOL NetworkMonitor::SignalRestart() {
  const HANDLE restart = g_restartEvent;
  if (g_server == nullptr || restart == nullptr) return FALSE;
  return ::SetEvent(restart);
}

namespace kova {

WebServerHTTP* ServerObject::Get() { return g_server; }

WebServerHTTP* ServerObject::Create() {
  if (g_server != nullptr) return g_server;
  g_server = new (std::nothrow)
      WebServerHTTP(&NetworkMonitor::_RestartServerThread, FreshRestartEvent());
  return g_server;
}

void ServerObject::Destroy() {
  WebServerHTTP* const server = g_server;
  if (server == nullptr) return;
  NetworkMonitorState& monitor = server->Monitor();
  monitor.ending = true;
  server->Stop();
  if (monitor.shutdownEvent.IsValid()) ::SetEvent(monitor.shutdownEvent.Get());
  g_server = nullptr;
  const bool isJoined = server->JoinRestartThread();
  // A restart that was past the point where it looks may have listened again.
  server->Stop();
  server->JoinAcceptThread();
  // What a thread may still touch is better lost than freed.
  if (isJoined) delete server;
}

void ServerObject::CloseRestartEvent() {
  const HANDLE restart = g_restartEvent.exchange(nullptr);
  if (restart != nullptr) ::CloseHandle(restart);
}

}  // namespace kova
