// A TCP client of the server under test, with bounded waits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::test {

// How long a client waits for what the server owes it. Never waited out in a
// test that passes.
inline constexpr DWORD kClientPatienceMs = 10000;

// 127.0.0.1 and a port, as Windows Sockets take them.
[[nodiscard]] sockaddr_in LoopbackAddress(uint16_t port);

// A connection to 127.0.0.1. A program that has clients holds Windows Sockets
// open from its start to its end, whatever the server does. Sends every piece
// at once (no delay for coalescing). Used on one thread.
class TestClient {
 public:
  // Connects. `receiveBufferBytes` other than 0 asks for a receive buffer of
  // that size, for clients that are to stall the server's sending.
  explicit TestClient(uint16_t port, int receiveBufferBytes = 0);

  [[nodiscard]] bool IsConnected() const { return m_socket.IsValid(); }
  [[nodiscard]] SOCKET Socket() const { return m_socket.Get(); }
  // This end of the connection as the server names it, "127.0.0.1:50123".
  [[nodiscard]] std::string Address() const;
  // Its port; 0 if it is not connected.
  [[nodiscard]] uint16_t LocalPort() const;

  // Sends all of `bytes`; false if the connection broke.
  bool Send(std::string_view bytes);
  // Sends `bytes` as that many segments of one byte.
  bool SendByteByByte(std::string_view bytes);

  // What arrives until `count` bytes have come, the peer closes, or
  // `patienceMs` have passed.
  std::string Receive(size_t count, DWORD patienceMs = kClientPatienceMs);
  // What arrives until the peer closes; ClosedByPeer() tells if it did.
  std::string ReceiveAll(DWORD patienceMs = kClientPatienceMs);
  // Whether the last receive ended because the peer closed the connection, in
  // order or by a reset.
  [[nodiscard]] bool ClosedByPeer() const { return m_closedByPeer; }
  // Whether that was a reset.
  [[nodiscard]] bool ResetByPeer() const { return m_resetByPeer; }
  // Whether nothing arrives and nothing is closed for `quietMs`.
  [[nodiscard]] bool StaysQuiet(DWORD quietMs);

  // Tells the peer that nothing more will be sent; receiving goes on.
  void FinishSending();
  // Closes with a reset instead of an orderly end.
  void Reset();
  void Close();

 private:
  UniqueSocket m_socket;
  bool m_closedByPeer = false;
  bool m_resetByPeer = false;
};

// One connection: sends `request` and returns what came until the server
// closed. Empty if it did not connect or did not close.
std::string Ask(uint16_t port, std::string_view request);

}  // namespace kova::test
