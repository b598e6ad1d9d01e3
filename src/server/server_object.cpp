#include "server/server_object.h"

#include <memory>
#include <new>
#include <utility>

#include "server/network_monitor.h"

namespace kova {
namespace {

// Written under the lock, exclusively; an extension's thread that asks for a
// restart holds it shared, so that the server is not destroyed under it.
SRWLOCK g_lock = SRWLOCK_INIT;
WebServerHTTP* g_server = nullptr;

void Publish(WebServerHTTP* server) {
  ::AcquireSRWLockExclusive(&g_lock);
  g_server = server;
  ::ReleaseSRWLockExclusive(&g_lock);
}

}  // namespace

WebServerHTTP* ServerObject::Get() { return g_server; }

WebServerHTTP* ServerObject::Create() {
  if (g_server != nullptr) return g_server;
  auto* const server =
      new (std::nothrow) WebServerHTTP(&NetworkMonitor::_RestartServerThread);
  if (server != nullptr) Publish(server);
  return server;
}

void ServerObject::Destroy() {
  const std::unique_ptr<WebServerHTTP> server(g_server);
  NetworkMonitorState& monitor = server->Monitor();
  monitor.ending = true;
  if (monitor.shutdownEvent.IsValid()) ::SetEvent(monitor.shutdownEvent.Get());
  // From here on requests for a restart find no server, so that they cannot
  // hold up the end of the restart thread.
  Publish(nullptr);
  server->JoinRestartThread();
  server->Stop();
  server->JoinAcceptThread();
}

BOOL ServerObject::SignalRestart() {
  ::AcquireSRWLockShared(&g_lock);
  BOOL result = FALSE;
  if (g_server != nullptr && g_server->Monitor().restartEvent.IsValid()) {
    result = ::SetEvent(g_server->Monitor().restartEvent.Get());
  }
  ::ReleaseSRWLockShared(&g_lock);
  return result;
}

}  // namespace kova
