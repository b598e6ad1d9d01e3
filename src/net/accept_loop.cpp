#include "net/accept_loop.h"

#include "log/log_line.h"
#include "text/o_string.h"

namespace kova {
namespace {

using tk::LogChannel;

constexpr const char* kMethod = "WebServerBase::_AcceptThread";
constexpr int kMostBacklog = 0x7FFFFFFF;
constexpr int kAddressBytes = 16;

// Logs a failed Winsock call on Error: its text, then its error code.
void LogFailure(const wchar_t* text, int code) {
  LogLine(LogChannel::Error, kMethod) << text << code;
}

uint16_t LocalPort(SOCKET socket) {
  sockaddr_in local = {};
  int bytes = kAddressBytes;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&local), &bytes) != 0) {
    return 0;
  }
  return ::ntohs(local.sin_port);
}

uint16_t PeerPort(SOCKET socket) {
  sockaddr_in peer = {};
  int bytes = kAddressBytes;
  if (::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &bytes) != 0) {
    return 0;
  }
  return ::ntohs(peer.sin_port);
}

void LogAccepted(SOCKET socket, const sockaddr_in& peer) {
  LogLine line(LogChannel::DetailInfoB, kMethod);
  if (!line) return;
  const auto& address = peer.sin_addr.S_un.S_un_b;
  line << L"AcceptThread: Accepted. clientSocket:Ox"
       << OString::Hex(static_cast<uint64_t>(socket)).Wide() << L" local port: "
       << LocalPort(socket) << L" peer port: " << unsigned{address.s_b1} << L"."
       << unsigned{address.s_b2} << L"." << unsigned{address.s_b3} << L"."
       << unsigned{address.s_b4} << L":" << PeerPort(socket);
}

// A host that starts another program must not hand it the port. Windows can
// make a socket so from the start, but older ones refuse to; a program that is
// started in between gets it.
void KeepFromChildren(SOCKET socket) {
  ::SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT,
                         0);
}

// "1.2.3.4:5678", as WSAAddressToStringW renders an address with a port.
std::string AddressText(sockaddr_in peer) {
  wchar_t text[64] = {};
  DWORD length = 64;
  const int result = ::WSAAddressToStringW(
      reinterpret_cast<sockaddr*>(&peer), sizeof(peer), nullptr, text, &length);
  if (result == SOCKET_ERROR) return std::string();
  // Digits, dots and a colon, which need no code page.
  std::string narrow;
  for (const wchar_t* at = text; *at != 0; ++at) {
    narrow += static_cast<char>(*at);
  }
  return narrow;
}

}  // namespace

bool AcceptLoop::Listen(uint32_t port, uint32_t bindAddress) {
  return OpenWinsock() && OpenSocket(port, bindAddress) && CreateEvents();
}

bool AcceptLoop::OpenWinsock() {
  WORD granted = 0;
  const int result = m_winsock.Open(&granted);
  if (result != 0) {
    LogFailure(L"WSAStartup(...) failure. result:", result);
    return false;
  }
  if (LOBYTE(granted) != 2 || HIBYTE(granted) != 2) {
    LogLine(LogChannel::Error, kMethod)
        << L"Requested Socket version does not exist";
    return false;
  }
  return true;
}

bool AcceptLoop::OpenSocket(uint32_t port, uint32_t bindAddress) {
  m_listening.Reset(
      ::WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, WSA_FLAG_OVERLAPPED));
  if (!m_listening.IsValid()) {
    LogFailure(L"AcceptThread: WSASocket(...) failure. WSAGetLastError:",
               ::WSAGetLastError());
    return false;
  }
  KeepFromChildren(m_listening.Get());
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = ::htonl(bindAddress);
  if (::bind(m_listening.Get(), reinterpret_cast<sockaddr*>(&address),
             kAddressBytes) == SOCKET_ERROR) {
    LogFailure(L"AcceptThread: bind(...) failure. GetLastError:",
               ::WSAGetLastError());
    return false;
  }
  if (::listen(m_listening.Get(), kMostBacklog) == SOCKET_ERROR) {
    LogFailure(L"listen(...) failure. WSAGetLastError:", ::WSAGetLastError());
    return false;
  }
  return true;
}

bool AcceptLoop::CreateEvents() {
  m_shutdownEvent = ::WSACreateEvent();
  if (m_shutdownEvent == WSA_INVALID_EVENT) {
    LogFailure(
        L"WSACreateEvent(...) failure for ShutdownEvent. WSAGetLastError:",
        ::WSAGetLastError());
    return false;
  }
  m_shutdownSignal = m_shutdownEvent;
  m_networkEvent.Reset(::WSACreateEvent());
  if (!m_networkEvent.IsValid()) {
    LogFailure(
        L"WSACreateEvent(...) failure for networkEvent. WSAGetLastError:",
        ::WSAGetLastError());
    return false;
  }
  if (::WSAEventSelect(m_listening.Get(), m_networkEvent.Get(), FD_ACCEPT) ==
      SOCKET_ERROR) {
    LogFailure(L"WSAEventSelect(...) failure. WSAGetLastError:",
               ::WSAGetLastError());
    return false;
  }
  return true;
}

bool AcceptLoop::Serve() {
  const WSAEVENT events[] = {m_shutdownEvent, m_networkEvent.Get()};
  for (;;) {
    const DWORD woken =
        ::WSAWaitForMultipleEvents(2, events, FALSE, WSA_INFINITE, FALSE);
    if (woken == WSA_WAIT_EVENT_0) return true;
    if (woken == WSA_WAIT_FAILED) {
      LogFailure(L"WSAWaitForMultipleObjects(...) failure. WSAGetLastError:",
                 ::WSAGetLastError());
      return false;
    }
    if (!OnNetworkEvent()) return false;
  }
}

bool AcceptLoop::OnNetworkEvent() {
  WSANETWORKEVENTS found = {};
  if (::WSAEnumNetworkEvents(m_listening.Get(), m_networkEvent.Get(), &found) ==
      SOCKET_ERROR) {
    LogFailure(L"WSAEnumNetworkEvents(...) failure. WSAGetLastError:",
               ::WSAGetLastError());
    return false;
  }
  if (found.lNetworkEvents & FD_ACCEPT) AcceptOne();
  return true;
}

void AcceptLoop::AcceptOne() {
  sockaddr_in peer = {};
  int bytes = kAddressBytes;
  m_accepted.Reset(::WSAAccept(m_listening.Get(),
                               reinterpret_cast<sockaddr*>(&peer), &bytes,
                               nullptr, 0));
  if (!m_accepted.IsValid()) {
    const int error = ::WSAGetLastError();
    LogLine(LogChannel::Warning, kMethod)
        << L"WSAAccept(...) failure. Failure ignored. WSAGetLastError:"
        << error;
    return;
  }
  KeepFromChildren(m_accepted.Get());
  LogAccepted(m_accepted.Get(), peer);
  if (m_taker.AddClient(m_accepted, AddressText(peer),
                        ::ntohs(peer.sin_port)) == 0) {
    LogLine(LogChannel::Warning, kMethod)
        << L"AddClient(...) failure. Failure ignored.";
  }
}

void AcceptLoop::Close() {
  // Whoever has taken the shutdown event to signal it closes it.
  TakeShutdownEvent().Reset();
  m_networkEvent.Reset();
  m_listening.Reset();
  m_winsock.Close();
  m_accepted.Reset();
}

UniqueWsaEvent AcceptLoop::TakeShutdownEvent() {
  return UniqueWsaEvent(m_shutdownSignal.exchange(WSA_INVALID_EVENT));
}

}  // namespace kova
