// The one server object of the process.
#pragma once

#include "base/windows_api.h"
#include "net/web_server_http.h"

namespace kova {

// Holds at most one server. Create() and Destroy() are called by the exports
// alone, which the host does not call concurrently; SignalRestart() may be
// called at any time, from any thread.
class ServerObject {
 public:
  ServerObject() = delete;

  // The server, null while there is none.
  [[nodiscard]] static WebServerHTTP* Get();

  // Makes the server if there is none, and starts its restart thread. Null
  // where memory runs out.
  static WebServerHTTP* Create();

  // Ends the restart thread, stops a listener that a restart in flight has
  // made run again, and destroys the server.
  static void Destroy();

  // Sets the restart event of the server, if there is one; what SetEvent
  // returned, else 0. Waits for nothing but the moment in which Destroy()
  // takes the server away.
  static BOOL SignalRestart();
};

}  // namespace kova
