#include "bench/servers/bare_connection.h"

#include <algorithm>
#include <cstring>

namespace kova::bench {
namespace {

// All as in the product.
constexpr DWORD kReceiveBytes = 0x4000;
constexpr size_t kMostBytesPerSend = 200000;
constexpr DWORD kSilenceMs = 300000;
constexpr size_t kPackageCharacters = 2048;

}  // namespace

BareConnection::BareConnection(BareConnections& all, SOCKET socket)
    : m_all(all),
      m_plan(all.Plan()),
      m_socket(socket),
      m_request(m_plan.growth, m_plan.bodyBytes + kReceiveBytes) {}

void BareConnection::Start(BareConnections& all, SOCKET socket) {
  auto* const connection = new BareConnection(all, socket);
  unsigned id = 0;
  connection->m_thread.Reset(reinterpret_cast<HANDLE>(
      ::_beginthreadex(nullptr, 0, &BareConnection::_ConnectionThread,
                       connection, CREATE_SUSPENDED, &id)));
  if (connection->m_thread.IsValid()) {
    ::ResumeThread(connection->m_thread.Get());
    return;
  }
  delete connection;
  --all.m_alive;
}

unsigned __stdcall BareConnection::_ConnectionThread(void* connection) {
  auto* const self = static_cast<BareConnection*>(connection);
  BareConnections& all = self->m_all;
  self->Serve();
  delete self;
  --all.m_alive;
  return 0;
}

void BareConnection::Serve() {
  if (!Prepare() || !m_all.Add(this)) return;
  Run();
  m_all.Remove(this);
}

bool BareConnection::Prepare() {
  m_socketEvent.Reset(::WSACreateEvent());
  m_exitEvent.Reset(::WSACreateEvent());
  return m_socketEvent.IsValid() && m_exitEvent.IsValid() &&
         ::WSAEventSelect(m_socket.Get(), m_socketEvent.Get(),
                          FD_READ | FD_WRITE | FD_CLOSE) == 0;
}

void BareConnection::Run() {
  m_buffer.reset(new char[kReceiveBytes]);
  const WSAEVENT events[] = {m_socketEvent.Get(), m_exitEvent.Get()};
  WSANETWORKEVENTS found = {};
  do {
    if (::WSAWaitForMultipleEvents(2, events, FALSE, kSilenceMs, FALSE) !=
        WSA_WAIT_EVENT_0) {
      return;
    }
    if (::WSAEnumNetworkEvents(m_socket.Get(), m_socketEvent.Get(), &found) !=
        0) {
      return;
    }
  } while (OnEvents(found.lNetworkEvents));
}

bool BareConnection::OnEvents(long events) {
  if ((events & FD_READ) && !Receive()) return false;
  if ((events & FD_WRITE) && m_sending && !SendRest()) return false;
  return !(events & FD_CLOSE);
}

bool BareConnection::Receive() {
  WSABUF buffer = {kReceiveBytes, m_buffer.get()};
  DWORD received = 0;
  DWORD flags = 0;
  if (::WSARecv(m_socket.Get(), &buffer, 1, &received, &flags, nullptr,
                nullptr) != 0) {
    return true;  // a broken connection is noticed through FD_CLOSE
  }
  // Where any piece is a request, there is nothing to gather.
  if (m_plan.bodyBytes == 0) return Answer();
  if (!m_request.Append(m_buffer.get(), received)) return false;
  return m_request.Size() < m_plan.bodyBytes || Answer();
}

bool BareConnection::Answer() {
  if (!m_plan.printer.empty() && !LookUpPrinter()) return false;
  m_answer = m_plan.answer.data();
  if (m_plan.copy) CopyAnswer();
  m_sent = 0;
  return SendRest();
}

// What the interface to extensions demands: they fill a block of the server's
// that is as long as the answer.
void BareConnection::CopyAnswer() {
  m_copy.reset(new char[m_plan.answer.size()]);
  std::memcpy(m_copy.get(), m_answer, m_plan.answer.size());
  m_answer = m_copy.get();
}

bool BareConnection::SendRest() {
  const size_t length = m_plan.answer.size();
  while (m_sent < length) {
    const size_t piece = std::min(length - m_sent, kMostBytesPerSend);
    WSABUF buffer = {static_cast<ULONG>(piece),
                     const_cast<char*>(m_answer + m_sent)};
    DWORD taken = 0;
    if (::WSASend(m_socket.Get(), &buffer, 1, &taken, 0, nullptr, nullptr) !=
        0) {
      m_sending = ::WSAGetLastError() == WSAEWOULDBLOCK;
      return m_sending;
    }
    m_sent += taken;
  }
  m_sending = false;
  m_request.Clear();
  return m_plan.keepOpen;
}

// The spooler calls that the product makes for each request it routes.
bool BareConnection::LookUpPrinter() const {
  PRINTER_DEFAULTSW defaults = {};
  defaults.DesiredAccess = PRINTER_ACCESS_USE;
  HANDLE printer = nullptr;
  if (!::OpenPrinterW(const_cast<wchar_t*>(m_plan.printer.c_str()), &printer,
                      &defaults)) {
    return false;
  }
  const UniquePrinter owned(printer);
  wchar_t name[] = L"DriverPackage";
  wchar_t text[kPackageCharacters];
  DWORD type = REG_NONE;
  DWORD neededBytes = 0;
  return ::GetPrinterDataW(printer, name, &type, reinterpret_cast<BYTE*>(text),
                           sizeof(text), &neededBytes) == ERROR_SUCCESS;
}

}  // namespace kova::bench
