#include "admin/scripted_peer.h"

#include <utility>

namespace kova::ctl::test {

ScriptedPeer::ScriptedPeer(std::string answer, AfterAnswer after)
    : m_answer(std::move(answer)), m_after(after) {
  m_ending.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  WSADATA data{};
  ::WSAStartup(MAKEWORD(2, 2), &data);
  m_listener.Reset(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  int size = sizeof(address);
  auto* const plain = reinterpret_cast<sockaddr*>(&address);
  static_cast<void>(::bind(m_listener.Get(), plain, size));
  ::getsockname(m_listener.Get(), plain, &size);
  ::listen(m_listener.Get(), 5);
  m_port = ::ntohs(address.sin_port);
  m_thread = std::thread([this] { Serve(); });
}

ScriptedPeer::~ScriptedPeer() {
  End();
  ::WSACleanup();
}

const std::string& ScriptedPeer::Request() {
  End();
  return m_request;
}

void ScriptedPeer::Serve() {
  m_client.Reset(::accept(m_listener.Get(), nullptr, nullptr));
  if (!m_client.IsValid()) return;
  char bytes[4096];
  while (m_request.find("\r\n\r\n") == std::string::npos) {
    const int count = ::recv(m_client.Get(), bytes, sizeof(bytes), 0);
    if (count <= 0) return;
    m_request.append(bytes, static_cast<size_t>(count));
  }
  ::send(m_client.Get(), m_answer.data(), static_cast<int>(m_answer.size()), 0);
  if (m_after == AfterAnswer::kClose) m_client.Reset();
  if (m_after == AfterAnswer::kTrickle) Trickle();
}

void ScriptedPeer::Trickle() const {
  constexpr DWORD kPauseMs = 20;
  while (::WaitForSingleObject(m_ending.Get(), kPauseMs) == WAIT_TIMEOUT &&
         ::send(m_client.Get(), &m_answer.back(), 1, 0) == 1) {
  }
}

void ScriptedPeer::End() {
  if (!m_thread.joinable()) return;
  ::SetEvent(m_ending.Get());
  m_listener.Reset();  // ends a wait for a connection
  m_thread.join();
  m_client.Reset();
}

}  // namespace kova::ctl::test
