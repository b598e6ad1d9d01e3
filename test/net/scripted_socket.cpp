#include "test/net/scripted_socket.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kova::test {
namespace {

ScriptedSocket* g_script;

// The front of a script, or a default one where the script is at its end.
template <typename Step>
Step Next(std::deque<Step>& steps, Step otherwise) {
  if (steps.empty()) return otherwise;
  Step step = std::move(steps.front());
  steps.pop_front();
  return step;
}

}  // namespace

ScriptedSocket::ScriptedSocket()
    : m_waitPatch(nullptr, "WSAWaitForMultipleEvents", &Wait),
      m_enumPatch(nullptr, "WSAEnumNetworkEvents", &EnumEvents),
      m_receivePatch(nullptr, "WSARecv", &Receive),
      m_sendPatch(nullptr, "WSASend", &Send) {
  g_script = this;
}

ScriptedSocket::~ScriptedSocket() { g_script = nullptr; }

void ScriptedSocket::Wake(long events) {
  m_wakeUps.push_back({WSA_WAIT_EVENT_0, events, 0});
}

void ScriptedSocket::WakeAndFail(int error) {
  m_wakeUps.push_back({WSA_WAIT_EVENT_0, FD_CLOSE, error});
}

void ScriptedSocket::WaitGives(DWORD woken) {
  m_wakeUps.push_back({woken, 0, 0});
}

void ScriptedSocket::Arrive(std::string bytes) {
  m_arrivals.push_back({std::move(bytes), 0});
}

void ScriptedSocket::ReceiveFails(int error) {
  m_arrivals.push_back({"", error});
}

void ScriptedSocket::Take(uint32_t most) { m_takings.push_back({most, 0}); }

void ScriptedSocket::SendFails(int error) { m_takings.push_back({0, error}); }

const std::vector<DWORD>& ScriptedSocket::Timeouts() const {
  return m_timeouts;
}

const std::vector<uint32_t>& ScriptedSocket::Pieces() const { return m_pieces; }

const std::string& ScriptedSocket::Sent() const { return m_sent; }

size_t ScriptedSocket::WakeUpsLeft() const { return m_wakeUps.size(); }

DWORD WSAAPI ScriptedSocket::Wait(DWORD /*count*/, const WSAEVENT* /*events*/,
                                  WINBOOL /*all*/, DWORD timeoutMs,
                                  WINBOOL /*alertable*/) {
  g_script->m_timeouts.push_back(timeoutMs);
  auto& wakeUps = g_script->m_wakeUps;
  if (wakeUps.empty()) return WSA_WAIT_EVENT_0 + 1;
  const DWORD woken = wakeUps.front().woken;
  if (woken != WSA_WAIT_EVENT_0) wakeUps.pop_front();
  return woken;
}

int WSAAPI ScriptedSocket::EnumEvents(SOCKET /*socket*/, WSAEVENT /*event*/,
                                      LPWSANETWORKEVENTS found) {
  const WakeUp wakeUp = Next(g_script->m_wakeUps, WakeUp());
  found->lNetworkEvents = wakeUp.events;
  if (wakeUp.error == 0) return 0;
  ::WSASetLastError(wakeUp.error);
  return SOCKET_ERROR;
}

int WSAAPI ScriptedSocket::Receive(
    SOCKET /*socket*/, LPWSABUF buffers, DWORD /*count*/, LPDWORD received,
    LPDWORD /*flags*/, LPWSAOVERLAPPED /*overlapped*/,
    LPWSAOVERLAPPED_COMPLETION_ROUTINE /*routine*/) {
  const Arrival arrival = Next(g_script->m_arrivals, Arrival());
  if (arrival.error != 0) {
    ::WSASetLastError(arrival.error);
    return SOCKET_ERROR;
  }
  const size_t bytes = std::min<size_t>(arrival.bytes.size(), buffers[0].len);
  std::memcpy(buffers[0].buf, arrival.bytes.data(), bytes);
  *received = static_cast<DWORD>(bytes);
  return 0;
}

int WSAAPI ScriptedSocket::Send(
    SOCKET /*socket*/, LPWSABUF buffers, DWORD /*count*/, LPDWORD sent,
    DWORD /*flags*/, LPWSAOVERLAPPED /*overlapped*/,
    LPWSAOVERLAPPED_COMPLETION_ROUTINE /*routine*/) {
  g_script->m_pieces.push_back(buffers[0].len);
  const Taking taking = Next(g_script->m_takings, Taking());
  if (taking.error != 0) {
    ::WSASetLastError(taking.error);
    return SOCKET_ERROR;
  }
  *sent = std::min<uint32_t>(buffers[0].len, taking.most);
  g_script->m_sent.append(buffers[0].buf, *sent);
  return 0;
}

}  // namespace kova::test
