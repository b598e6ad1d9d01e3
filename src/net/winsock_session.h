// One reference to Windows Sockets.
#pragma once

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova {

// Windows Sockets counts WSAStartup and WSACleanup calls per process and closes
// every socket of the process when the count returns to zero. Whoever owns a
// socket therefore sees to a session for as long. Not safe for use by two
// threads at once; nor is the count itself on every system, so that sessions
// are opened and closed on few threads, one after the other.
class WinsockSession {
 public:
  WinsockSession() = default;
  ~WinsockSession() { Close(); }

  WinsockSession(const WinsockSession&) = delete;
  WinsockSession& operator=(const WinsockSession&) = delete;

  // Asks for version 2.2. Returns what WSAStartup returned: 0, or an error
  // code, and then holds no reference. `granted` receives the version that the
  // system grants, major number in the low byte.
  [[nodiscard]] int Open(WORD* granted) {
    Close();
    WSADATA data = {};
    const int result = ::WSAStartup(0x0202, &data);
    m_open = result == 0;
    *granted = data.wVersion;
    return result;
  }

  [[nodiscard]] bool IsOpen() const { return m_open; }

  // Gives the reference back, if there is one. Keeps the last error.
  void Close() {
    if (!m_open) return;
    const LastErrorKeeper keeper;
    m_open = false;
    ::WSACleanup();
  }

 private:
  bool m_open = false;
};

}  // namespace kova
