// The one server object of the process.
#pragma once

#include "base/windows_api.h"
#include "net/web_server_http.h"

namespace kova {

// Holds at most one server. Create() and Destroy() are called by the exports
// alone, which the host does not call concurrently; SignalRestart() may be
// called at any time, from any thread, and takes no lock: a thread that is
// killed in it holds up nobody.
class ServerObject {
 public:
  ServerObject() = delete;

  // The server, null while there is none.
  [[nodiscard]] static WebServerHTTP* Get();

  // Makes the server if there is none, and starts its restart thread with this
  // procedure. Null where memory runs out.
  static WebServerHTTP* Create(WebServerHTTP::ThreadProcedure restartThread);

  // Stops the server, ends its restart thread, and destroys it. Nothing listens
  // afterwards, nor does a restart that was under way. Does nothing while there
  // is no server.
  static void Destroy();

  // Sets the restart event if there is a server and an event; what SetEvent
  // returned, else 0.
  static BOOL SignalRestart();

  // Gives the restart event back. Called when the library is unloaded.
  static void CloseRestartEvent();
};

}  // namespace kova
