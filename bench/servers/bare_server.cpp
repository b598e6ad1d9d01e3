#include "bench/servers/bare_server.h"

namespace kova::bench {
namespace {

constexpr int kMostBacklog = 0x7FFFFFFF;
constexpr DWORD kEndMs = 1000;

}  // namespace

BareServer::BareServer(uint16_t port, BarePlan plan)
    : m_port(port), m_plan(std::move(plan)), m_connections(m_plan) {}

std::string BareServer::Start() {
  WORD granted = 0;
  if (m_winsock.Open(&granted) != 0) return "Winsock does not start";
  if (!Listen()) {
    return "cannot listen on 127.0.0.1:" + std::to_string(m_port) +
           ", Winsock error " + std::to_string(::WSAGetLastError());
  }
  unsigned id = 0;
  m_thread.Reset(reinterpret_cast<HANDLE>(
      ::_beginthreadex(nullptr, 0, &BareServer::_AcceptThread, this, 0, &id)));
  return m_thread.IsValid() ? "" : "cannot start the accept thread";
}

bool BareServer::Listen() {
  m_listener.Reset(
      ::WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, WSA_FLAG_OVERLAPPED));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(m_port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  int sizeBytes = sizeof(address);
  auto* const plain = reinterpret_cast<sockaddr*>(&address);
  if (!m_listener.IsValid() || ::bind(m_listener.Get(), plain, sizeBytes) ||
      ::listen(m_listener.Get(), kMostBacklog) ||
      ::getsockname(m_listener.Get(), plain, &sizeBytes)) {
    return false;
  }
  m_port = ::ntohs(address.sin_port);
  m_shutdownEvent.Reset(::WSACreateEvent());
  m_networkEvent.Reset(::WSACreateEvent());
  return ::WSAEventSelect(m_listener.Get(), m_networkEvent.Get(), FD_ACCEPT) ==
         0;
}

unsigned __stdcall BareServer::_AcceptThread(void* server) {
  static_cast<BareServer*>(server)->Accept();
  return 0;
}

void BareServer::Accept() {
  const WSAEVENT events[] = {m_shutdownEvent.Get(), m_networkEvent.Get()};
  while (::WSAWaitForMultipleEvents(2, events, FALSE, WSA_INFINITE, FALSE) ==
         WSA_WAIT_EVENT_0 + 1) {
    WSANETWORKEVENTS found = {};
    ::WSAEnumNetworkEvents(m_listener.Get(), m_networkEvent.Get(), &found);
    if (!(found.lNetworkEvents & FD_ACCEPT)) continue;
    sockaddr_in peer = {};
    int sizeBytes = sizeof(peer);
    const SOCKET socket =
        ::WSAAccept(m_listener.Get(), reinterpret_cast<sockaddr*>(&peer),
                    &sizeBytes, nullptr, 0);
    if (socket != INVALID_SOCKET) m_connections.Start(socket);
  }
  m_listener.Reset();
}

size_t BareServer::Stop() {
  ::WSASetEvent(m_shutdownEvent.Get());
  const bool ended = ::WaitForSingleObject(m_thread.Get(), kEndMs) == 0;
  m_thread.Reset();
  return (ended ? 0 : 1) + m_connections.Release();
}

}  // namespace kova::bench
