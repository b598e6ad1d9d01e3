#include "server/server_object.h"

#include <atomic>
#include <new>

namespace kova {
namespace {

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

}  // namespace

WebServerHTTP* ServerObject::Get() { return g_server; }

WebServerHTTP* ServerObject::Create(
    WebServerHTTP::ThreadProcedure restartThread) {
  if (g_server != nullptr) return g_server;
  g_server =
      new (std::nothrow) WebServerHTTP(restartThread, FreshRestartEvent());
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

BOOL ServerObject::SignalRestart() {
  const HANDLE restart = g_restartEvent;
  if (g_server == nullptr || restart == nullptr) return FALSE;
  return ::SetEvent(restart);
}

void ServerObject::CloseRestartEvent() {
  const HANDLE restart = g_restartEvent.exchange(nullptr);
  if (restart != nullptr) ::CloseHandle(restart);
}

}  // namespace kova
