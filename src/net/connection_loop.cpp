#include "net/connection_loop.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "log/log_line.h"

namespace kova {
namespace {

using tk::LogChannel;

constexpr const char* kMethod = "Network_ClientThread::Run";
constexpr uint32_t kReceiveBytes = 0x4000;
constexpr uint32_t kMostBytesPerSend = 200000;

// Negative results are logged as the 32-bit value they are.
auto HexOf(int value) { return Hex(static_cast<uint32_t>(value)); }

}  // namespace

ConnectionLoop::ConnectionLoop(ConnectionHost& host, SOCKET socket,
                               WSAEVENT readEvent, WSAEVENT stopEvent,
                               const std::atomic<bool>& stopping,
                               const OString& clientAddress,
                               RequestHandler handler)
    : m_host(host),
      m_socket(socket),
      m_readEvent(readEvent),
      m_stopEvent(stopEvent),
      m_stopping(stopping),
      m_clientAddress(clientAddress),
      m_handler(handler) {}

unsigned ConnectionLoop::Run() {
  LogLine(LogChannel::DetailInfoB, kMethod)
      << L"Client Thread started. For socket: 0x" << Hex(m_socket);
  for (;;) {
    long events = 0;
    Next next = WaitForEvents(events);
    if (next == Next::kGoOn) next = OnEvents(events);
    if (next == Next::kEndWith0) return 0;
    if (next == Next::kEndWith1) return 1;
  }
}

ConnectionLoop::Next ConnectionLoop::WaitForEvents(long& events) {
  const WSAEVENT handles[] = {m_readEvent, m_stopEvent};
  const uint32_t timeoutMs = m_host.ClientTimeoutMs();
  const DWORD woken = ::WSAWaitForMultipleEvents(
      2, handles, FALSE, timeoutMs == 0 ? WSA_INFINITE : timeoutMs, FALSE);
  if (woken == WSA_WAIT_FAILED) return Next::kEndWith0;
  // The wait names the read event where both are set; a peer that never stops
  // sending must not keep a stop from being seen.
  if (woken != WSA_WAIT_EVENT_0 || m_stopping) return Next::kEndWith1;

  WSANETWORKEVENTS found = {};
  const int result = ::WSAEnumNetworkEvents(m_socket, m_readEvent, &found);
  LogLine(LogChannel::DetailInfoE, kMethod)
      << L"WSAEnumNetworkEvents returned: 0x" << HexOf(result)
      << L" Network Events: 0x" << HexOf(found.lNetworkEvents);
  if (result == SOCKET_ERROR || found.lNetworkEvents == 0) return Next::kWait;
  events = found.lNetworkEvents;
  return Next::kGoOn;
}

ConnectionLoop::Next ConnectionLoop::OnEvents(long events) {
  Next next = Next::kGoOn;
  if (events & FD_READ) next = OnReadable();
  if (next == Next::kGoOn && (events & FD_WRITE) && m_resend) {
    next = OnWritable();
  }
  if (next == Next::kGoOn && (events & FD_CLOSE)) next = OnClosed();
  return next;
}

ConnectionLoop::Next ConnectionLoop::OnReadable() {
  if (m_receiveBuffer == nullptr)
    m_receiveBuffer.reset(new char[kReceiveBytes]);
  WSABUF buffer = {kReceiveBytes, m_receiveBuffer.get()};
  DWORD received = 0;
  DWORD flags = 0;
  const int result =
      ::WSARecv(m_socket, &buffer, 1, &received, &flags, nullptr, nullptr);
  const int error = ::WSAGetLastError();
  LogLine(LogChannel::DetailInfoE, kMethod)
      << L"WSARecv returned 0x" << HexOf(result) << L" bytesReceived: 0x"
      << Hex(received);
  if (result == SOCKET_ERROR || received == 0) {
    LogLine(LogChannel::Warning, kMethod)
        << L"WSARecv(...) failure. WSAGetLastError:" << error;
    return Next::kGoOn;
  }
  m_host.OnReceived(received);
  if (!Append(received)) return Next::kEndWith0;
  if (!m_host.IsRequestComplete(m_request, m_progress)) {
    LogLine(LogChannel::DetailInfoE, kMethod)
        << L"HTTPRequest::IsComplete returned false, looping";
    return Next::kWait;
  }
  return Answer();
}

// The array's count is signed 32-bit: a request that outgrows it, or memory,
// cannot be answered.
bool ConnectionLoop::Append(uint32_t receivedBytes) {
  const int32_t old = m_request.Count();
  const int32_t more = static_cast<int32_t>(receivedBytes);
  if (old > std::numeric_limits<int32_t>::max() - more) return false;
  m_request.SetSize(old + more);
  if (m_request.Count() != old + more) return false;
  std::memcpy(m_request.Data() + old, m_receiveBuffer.get(), receivedBytes);
  return true;
}

ConnectionLoop::Next ConnectionLoop::Answer() {
  const bool answered =
      m_handler(m_request.Data(), static_cast<uint32_t>(m_request.Count()),
                m_response, &m_keepOpen, m_clientAddress) != 0;
  if (!answered) {
    LogLine(LogChannel::Warning, kMethod) << L"ParseRequest failed";
    return Next::kEndWith0;
  }
  m_sent = 0;
  return SendResponse();
}

ConnectionLoop::Next ConnectionLoop::SendResponse() {
  const bool sent = SendRest(L"ParseRequest response: ");
  // Deliberate: read after a complete send, too. A would-block code that
  // somebody left behind arms a resend, which then completes at once.
  const int error = ::WSAGetLastError();
  if (error == WSAEWOULDBLOCK) {
    m_resend = true;
    LogLine(LogChannel::DetailInfoE, kMethod)
        << L"WSAEWOULDBLOCK returned, setting resend flag";
    // Windows announces room only after a send that found none: where nothing
    // is left to send, nobody would ask for the resend.
    return sent ? CompleteResend() : Next::kWait;
  }
  if (!sent) {
    LogLine(LogChannel::Warning, kMethod)
        << L"WSASend(...) failure. Primary Send. WSAGetLastError:" << error;
    return Next::kEndWith1;
  }
  return FinishResponse();
}

// The wake-up that armed the resend is over for its other event bits.
ConnectionLoop::Next ConnectionLoop::CompleteResend() {
  const Next next = OnWritable();
  return next == Next::kGoOn ? Next::kWait : next;
}

ConnectionLoop::Next ConnectionLoop::OnWritable() {
  // What other calls left behind must not keep a finished resend from ending.
  ::WSASetLastError(0);
  const bool sent = SendRest(L"Resend Write: ");
  const int error = ::WSAGetLastError();
  if (error == WSAEWOULDBLOCK) {
    m_resend = true;
    LogLine(LogChannel::DetailInfoE, kMethod)
        << L"WSAEWOULDBLOCK returned during resend, setting resend flag";
    return Next::kWait;
  }
  if (!sent) {
    LogLine(LogChannel::Warning, kMethod)
        << L"SendFailure. Resend. WSAGetLastError:" << error;
    return Next::kEndWith1;
  }
  const Next next = FinishResponse();
  if (next == Next::kGoOn) m_resend = false;
  return next;
}

ConnectionLoop::Next ConnectionLoop::FinishResponse() {
  m_host.OnResponseSent(m_sent);
  if (m_keepOpen == 0) return Next::kEndWith1;
  m_request.SetSize(0);
  m_progress.Reset();
  return Next::kGoOn;
}

ConnectionLoop::Next ConnectionLoop::OnClosed() {
  LogLine(LogChannel::DetailInfoE, kMethod) << L"FD_CLOSE recieved exiting";
  return Next::kEndWith1;
}

bool ConnectionLoop::SendRest(const wchar_t* phase) {
  const auto length = static_cast<uint32_t>(m_response.Size());
  while (m_sent < length) {
    const uint32_t piece = std::min(length - m_sent, kMostBytesPerSend);
    WSABUF buffer = {piece, m_response.Data() + m_sent};
    DWORD taken = 0;
    const int result =
        ::WSASend(m_socket, &buffer, 1, &taken, 0, nullptr, nullptr);
    LogSendResult(phase, result, piece, taken, ::WSAGetLastError());
    if (result == SOCKET_ERROR) return false;
    m_sent += taken;
  }
  return true;
}

void ConnectionLoop::LogSendResult(const wchar_t* phase, int result,
                                   uint32_t requested, uint32_t sent,
                                   int error) const {
  if (result == SOCKET_ERROR) {
    LogLine(LogChannel::DetailInfoE, kMethod)
        << phase << L"SOCKET_ERROR returned by WSASend. WSAGetLastError: 0x"
        << HexOf(error);
  } else if (sent != requested) {
    LogLine(LogChannel::DetailInfoE, kMethod)
        << phase << L"Successfully sent partial buffer. Sent: 0x" << Hex(sent)
        << L" bytes out of 0x" << Hex(requested);
  }
}

}  // namespace kova
