// A TCP client for tests of the listener. It opens no Winsock session of its
// own, so that the tests can count the server's.
#pragma once

#include <cstdint>
#include <string>

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::test {

// Connects in its constructor and closes in its destructor. Receives wait for
// 10 s at most.
class LoopbackClient {
 public:
  explicit LoopbackClient(uint16_t port)
      : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    const DWORD mostMs = 10000;
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVTIMEO,
                 reinterpret_cast<const char*>(&mostMs), sizeof(mostMs));
    const sockaddr_in server = Loopback(port);
    m_connected =
        ::connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&server),
                  sizeof(server)) == 0;
  }

  [[nodiscard]] bool IsConnected() const { return m_connected; }
  [[nodiscard]] SOCKET Socket() const { return m_socket.Get(); }
  // The client's own port.
  [[nodiscard]] uint16_t Port() const {
    sockaddr_in local = {};
    int bytes = sizeof(local);
    ::getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&local), &bytes);
    return ::ntohs(local.sin_port);
  }
  // "127.0.0.1:" and the port, as the server sees this client.
  [[nodiscard]] std::string Address() const {
    return "127.0.0.1:" + std::to_string(Port());
  }

  bool Send(const std::string& bytes) const {
    const int count = static_cast<int>(bytes.size());
    return ::send(m_socket.Get(), bytes.data(), count, 0) == count;
  }
  // At most `most` bytes; empty when the server closed, or on failure.
  [[nodiscard]] std::string Receive(size_t most = 65536) const {
    std::string bytes(most, '\0');
    const int count =
        ::recv(m_socket.Get(), bytes.data(), static_cast<int>(most), 0);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
  }
  // Everything until the server closes.
  [[nodiscard]] std::string ReceiveAll() const {
    std::string all;
    for (std::string some = Receive(); !some.empty(); some = Receive()) {
      all += some;
    }
    return all;
  }
  void Close() { m_socket.Reset(); }

  static sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = ::htons(port);
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    return address;
  }

 private:
  UniqueSocket m_socket;
  bool m_connected = false;
};

}  // namespace kova::test
