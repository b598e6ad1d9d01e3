// The one server of the process: whether and how it listens, and when it
// restarts.
#pragma once

#include "base/windows_api.h"
#include "net/web_server_http.h"

// Works on the monitor's fields of a server object.
namespace NetworkMonitor {

// Reads the settings and runs the listener as they say. Once the accept thread
// has answered, writes "Network Bidirectional", also when it could not listen.
// Takes the restart lock: a start on the host's thread and a restart exclude
// each other.
void StartServer(WebServerHTTP& server);

// Stops the listener and starts it with freshly read settings, under the
// restart lock.
void ServerRestart(WebServerHTTP& server);

// The restart thread's procedure; `server` is the WebServerHTTP. Serves
// restart requests until the shutdown event is set; its exit code is 0.
unsigned __stdcall _RestartServerThread(void* server);

// The routine that every driver extension receives. Asks for a restart and
// returns at once; does nothing while no server exists. May be called from any
// thread at any time, also while the server is being stopped; takes no lock, so
// that a thread that is killed in it holds up nobody. Returns what SetEvent
// returned, 0 when it was not called.
BOOL SignalRestart();

}  // namespace NetworkMonitor

namespace kova {

// Holds at most one server. Create() and Destroy() are called by the exports
// alone, which the host does not call concurrently.
class ServerObject {
 public:
  ServerObject() = delete;

  // The server, null while there is none.
  [[nodiscard]] static WebServerHTTP* Get();

  // Makes the server if there is none; its restart thread runs
  // NetworkMonitor::_RestartServerThread. Null where memory runs out.
  static WebServerHTTP* Create();

  // Stops the server, ends its restart thread, and destroys it. Nothing listens
  // afterwards, nor does a restart that was under way. Does nothing while there
  // is no server.
  static void Destroy();

  // Gives the restart event back. Called when the library is unloaded.
  static void CloseRestartEvent();
};

}  // namespace kova
