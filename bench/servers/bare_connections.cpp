#include "bench/servers/bare_connections.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/handles.h"
#include "spooler/printers.h"

namespace kova::bench {
namespace {

// All as in the product.
constexpr DWORD kReceiveBytes = 0x4000;
constexpr size_t kMostBytesPerSend = 200000;
constexpr DWORD kSilenceMs = 300000;
constexpr DWORD kLookAgainMs = 100;
constexpr int kMostLooks = 50;

// What a request is gathered in; never more than `mostBytes`.
class ReceiveBlock {
 public:
  ReceiveBlock(Growth growth, size_t mostBytes)
      : m_growth(growth), m_mostBytes(mostBytes) {}
  ~ReceiveBlock() { Clear(); }
  ReceiveBlock(const ReceiveBlock&) = delete;
  ReceiveBlock& operator=(const ReceiveBlock&) = delete;

  [[nodiscard]] bool Append(const char* bytes, size_t count) {
    const size_t needed = m_size + count;
    if (needed > m_mostBytes) return false;
    if (m_growth == Growth::kExact || m_data == nullptr) {
      void* const data = std::realloc(
          m_data, m_growth == Growth::kExact ? needed : m_mostBytes);
      if (data == nullptr) return false;
      m_data = static_cast<char*>(data);
    }
    std::memcpy(m_data + m_size, bytes, count);
    m_size = needed;
    return true;
  }
  [[nodiscard]] size_t Size() const { return m_size; }
  void Clear() {
    std::free(m_data);
    m_data = nullptr;
    m_size = 0;
  }

 private:
  const Growth m_growth;
  const size_t m_mostBytes;
  char* m_data = nullptr;
  size_t m_size = 0;
};

}  // namespace

// Frees itself at the end of its thread.
class BareConnections::Connection {
 public:
  Connection(BareConnections& all, SOCKET socket)
      : m_all(all),
        m_plan(all.m_plan),
        m_socket(socket),
        m_request(m_plan.growth, m_plan.bodyBytes + kReceiveBytes) {}

  // False if no thread can be had.
  [[nodiscard]] bool StartThread();

  // Makes the thread end soon. Called under the lock of the connections.
  void SignalExit() { ::WSASetEvent(m_exitEvent.Get()); }

 private:
  static unsigned __stdcall _ConnectionThread(void* connection);

  void Serve();
  [[nodiscard]] bool Prepare();
  void Run();
  // Each returns whether the connection goes on.
  [[nodiscard]] bool OnEvents(long events);
  [[nodiscard]] bool Receive();
  [[nodiscard]] bool Answer();
  [[nodiscard]] bool SendRest();
  void CopyAnswer();
  [[nodiscard]] bool LookUpPrinter() const;

  BareConnections& m_all;
  const BarePlan& m_plan;
  UniqueSocket m_socket;
  UniqueKernelHandle m_thread;
  UniqueWsaEvent m_socketEvent;
  UniqueWsaEvent m_exitEvent;
  std::unique_ptr<char[]> m_buffer;
  ReceiveBlock m_request;
  std::unique_ptr<char[]> m_copy;
  const char* m_answer = nullptr;  // weak: the plan's, or the copy
  size_t m_sent = 0;
  bool m_sending = false;  // part of the answer waits for FD_WRITE
};

bool BareConnections::Connection::StartThread() {
  unsigned id = 0;
  m_thread.Reset(reinterpret_cast<HANDLE>(::_beginthreadex(
      nullptr, 0, &_ConnectionThread, this, CREATE_SUSPENDED, &id)));
  if (!m_thread.IsValid()) return false;
  // From here on the connection may be gone.
  ::ResumeThread(m_thread.Get());
  return true;
}

unsigned __stdcall BareConnections::Connection::_ConnectionThread(
    void* connection) {
  auto* const self = static_cast<Connection*>(connection);
  BareConnections& all = self->m_all;
  self->Serve();
  delete self;
  --all.m_alive;
  return 0;
}

void BareConnections::Connection::Serve() {
  if (!Prepare() || !m_all.Add(this)) return;
  Run();
  m_all.Remove(this);
}

bool BareConnections::Connection::Prepare() {
  m_socketEvent.Reset(::WSACreateEvent());
  m_exitEvent.Reset(::WSACreateEvent());
  return m_socketEvent.IsValid() && m_exitEvent.IsValid() &&
         ::WSAEventSelect(m_socket.Get(), m_socketEvent.Get(),
                          FD_READ | FD_WRITE | FD_CLOSE) == 0;
}

void BareConnections::Connection::Run() {
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

bool BareConnections::Connection::OnEvents(long events) {
  if ((events & FD_READ) && !Receive()) return false;
  if ((events & FD_WRITE) && m_sending && !SendRest()) return false;
  return !(events & FD_CLOSE);
}

bool BareConnections::Connection::Receive() {
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

bool BareConnections::Connection::Answer() {
  if (!m_plan.printer.empty() && !LookUpPrinter()) return false;
  m_answer = m_plan.answer.data();
  if (m_plan.copy) CopyAnswer();
  m_sent = 0;
  return SendRest();
}

// What the interface to extensions demands: they fill a block of the server's
// that is as long as the answer.
void BareConnections::Connection::CopyAnswer() {
  m_copy.reset(new char[m_plan.answer.size()]);
  std::memcpy(m_copy.get(), m_answer, m_plan.answer.size());
  m_answer = m_copy.get();
}

bool BareConnections::Connection::SendRest() {
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
bool BareConnections::Connection::LookUpPrinter() const {
  PRINTER_DEFAULTSW defaults = {};
  defaults.DesiredAccess = PRINTER_ACCESS_USE;
  HANDLE printer = nullptr;
  if (!::OpenPrinterW(const_cast<wchar_t*>(m_plan.printer.c_str()), &printer,
                      &defaults)) {
    return false;
  }
  const UniquePrinter owned(printer);
  wchar_t text[kMostPackageCharacters + 1];
  DWORD type = REG_NONE;
  DWORD neededBytes = 0;
  return ::GetPrinterDataW(printer, const_cast<wchar_t*>(kDriverPackageData),
                           &type, reinterpret_cast<BYTE*>(text), sizeof(text),
                           &neededBytes) == ERROR_SUCCESS;
}

void BareConnections::Start(SOCKET socket) {
  ++m_alive;
  auto* const connection = new Connection(*this, socket);
  if (connection->StartThread()) return;
  delete connection;
  --m_alive;
}

bool BareConnections::Add(Connection* connection) {
  const ScopedLock held(m_lock);
  if (m_releasing) return false;
  m_connections.push_back(connection);
  return true;
}

void BareConnections::Remove(const Connection* connection) {
  const ScopedLock held(m_lock);
  const auto found =
      std::find(m_connections.begin(), m_connections.end(), connection);
  *found = m_connections.back();
  m_connections.pop_back();
}

size_t BareConnections::Release() {
  {
    const ScopedLock held(m_lock);
    m_releasing = true;
    for (Connection* const connection : m_connections) {
      connection->SignalExit();
    }
  }
  for (int look = 0; look < kMostLooks && m_alive.load() != 0; ++look) {
    ::Sleep(kLookAgainMs);
  }
  return m_alive.load();
}

}  // namespace kova::bench
