// Listening on one port, and accepting what connects.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "base/handles.h"
#include "net/winsock_session.h"

namespace kova {

// Takes over the connections that an accept loop accepts.
class ConnectionTaker {
 public:
  ConnectionTaker(const ConnectionTaker&) = delete;
  ConnectionTaker& operator=(const ConnectionTaker&) = delete;

  // The client at `address` ("1.2.3.4:5678") has connected from `port`. A
  // `socket` that is left behind is closed. Called on the accept thread; zero
  // is logged as a failure.
  virtual int AddClient(UniqueSocket& socket, const std::string& address,
                        uint32_t port) = 0;

 protected:
  ConnectionTaker() = default;
  ~ConnectionTaker() = default;
};

// The listening socket, its events, and what the accept thread does with them.
// Log lines carry the name WebServerBase::_AcceptThread.
//
// The accept thread calls Listen(), Serve() and Close(), in this order; where
// it was killed in between, whoever killed it calls Close().
class AcceptLoop {
 public:
  explicit AcceptLoop(ConnectionTaker& taker) : m_taker(taker) {}

  AcceptLoop(const AcceptLoop&) = delete;
  AcceptLoop& operator=(const AcceptLoop&) = delete;

  // Listens on `port` (its low 16 bits) of `bindAddress` (IPv4 in host byte
  // order; 0: all interfaces). False, and logged, on a failure; Close() then
  // closes what had been opened.
  [[nodiscard]] bool Listen(uint32_t port, uint32_t bindAddress);

  // Accepts until the shutdown event is set, and then returns true; false, and
  // logged, on a failure. A failure that costs one connection does not end it.
  [[nodiscard]] bool Serve();

  // Closes what Listen() opened, and a connection that nobody has taken.
  void Close();

  // The event that ends Serve(). It belongs to the caller from now on, so that
  // nobody signals a handle that is closed. None where nothing listens or it
  // was taken before. May be called from any thread.
  [[nodiscard]] UniqueWsaEvent TakeShutdownEvent();

 private:
  bool OpenWinsock();
  bool OpenSocket(uint32_t port, uint32_t bindAddress);
  bool CreateEvents();
  bool OnNetworkEvent();
  void AcceptOne();

  ConnectionTaker& m_taker;
  WinsockSession m_winsock;
  UniqueSocket m_listening;
  UniqueSocket m_accepted;  // until somebody has taken it
  UniqueWsaEvent m_networkEvent;
  WSAEVENT m_shutdownEvent = WSA_INVALID_EVENT;
  // Whoever takes the event out of this field closes it.
  std::atomic<WSAEVENT> m_shutdownSignal{WSA_INVALID_EVENT};
};

}  // namespace kova
