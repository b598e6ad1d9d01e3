#include "net/web_server_base.h"

#include <cerrno>

#include "crash/guard.h"
#include "log/log_line.h"
#include "net/network_client_thread.h"

using kova::LogLine;
using tk::LogChannel;

namespace {

constexpr const char* kRun = "WebServerBase::Run";
constexpr DWORD kAnswerMs = 30000;
constexpr DWORD kEndMs = 1000;
constexpr uint32_t kClientTimeoutMs = 300000;
constexpr DWORD kKilledAcceptThread = 4660;

void LogNoAnswer() {
  LogLine(LogChannel::Error, kRun)
      << L"Run: Unable to get response from Accept Thread within specified "
         L"Timeout. Timeout:"
      << kAnswerMs;
}

}  // namespace

WebServerBase::WebServerBase()
    : m_clients(std::make_shared<kova::ClientList>()) {}

WebServerBase::~WebServerBase() = default;

int WebServerBase::Run(uint32_t port, int /*zero*/, uint32_t bindAddress) {
  const ScopedLock held(m_lifecycle);
  if (IsRunning()) {
    LogLine(LogChannel::DetailInfo, kRun) << L"Server is already running";
    return 0;
  }
  LogLine(LogChannel::Info, kRun) << L"Starting server on port " << port;
  if (HasStrayAcceptThread()) {
    LogNoAnswer();
    return 0;
  }
  m_bindAddress = bindAddress;
  m_port = port;
  m_clientTimeoutMs = kClientTimeoutMs;
  m_clients->Open();
  if (!StartAcceptThread()) return 0;
  return AwaitAcceptThread();
}

bool WebServerBase::StartAcceptThread() {
  m_startedEvent.Reset(::CreateEventW(nullptr, FALSE, TRUE, nullptr));
  ::ResetEvent(m_startedEvent.Get());
  m_startedSignal = m_startedEvent.Get();
  errno = 0;
  m_acceptThread.Reset(reinterpret_cast<HANDLE>(::_beginthreadex(
      nullptr, 0, &WebServerBase::_AcceptThread, this, 0, &m_acceptThreadId)));
  if (m_acceptThread.IsValid()) return true;

  // Deliberate: the started event stays open here; the next Run() closes it.
  const int error = errno;
  LogLine(LogChannel::Error, kRun)
      << L"_beginthreadex(...) failure, for Launch Thread[Run] errno:" << error;
  return false;
}

int WebServerBase::AwaitAcceptThread() {
  const bool answered =
      ::WaitForSingleObject(m_startedEvent.Get(), kAnswerMs) == WAIT_OBJECT_0;
  if (!answered) {
    LogNoAnswer();
    GiveUpStartedEvent();
  }
  m_startedEvent.Reset();
  return answered ? 1 : 0;
}

void WebServerBase::GiveUpStartedEvent() {
  if (m_startedSignal.exchange(nullptr) != nullptr) return;
  // The accept thread took the event and is about to signal it: it must not be
  // closed under it. A thread that died on the way ends the wait, too.
  const HANDLE either[] = {m_startedEvent.Get(), m_acceptThread.Get()};
  if (::WaitForMultipleObjects(2, either, FALSE, kEndMs) != WAIT_TIMEOUT) {
    return;
  }
  // It listens, so its signal failed: an event that may yet be signalled is
  // better lost than closed.
  (void)m_startedEvent.Release();
}

// An accept thread that has not ended although the server does not run is one
// that missed its time to answer; a second one beside it would share its
// socket and events.
bool WebServerBase::HasStrayAcceptThread() {
  return m_acceptThread.IsValid() &&
         ::WaitForSingleObject(m_acceptThread.Get(), kEndMs) != WAIT_OBJECT_0;
}

int WebServerBase::Stop() {
  const ScopedLock held(m_lifecycle);
  return IsRunning() ? StopRunning() : 0;
}

int WebServerBase::StopRunning() {
  const kova::UniqueWsaEvent shutdown(
      m_shutdownSignal.exchange(WSA_INVALID_EVENT));
  if (shutdown.IsValid()) ::WSASetEvent(shutdown.Get());
  const DWORD waited = ::WaitForSingleObject(m_acceptThread.Get(), kEndMs);
  // After a wait that failed at once the thread may be about to end, inside a
  // system call whose lock it would keep if it were killed there.
  if (waited == WAIT_FAILED) {
    ::WaitForSingleObject(m_acceptThread.Get(), kEndMs);
  }
  const bool ended = waited != WAIT_TIMEOUT && waited != WAIT_FAILED;
  if (!ended) KillAcceptThread();
  m_acceptThread.Reset();
  ReleaseClients();
  m_running = 0;
  return ended ? 1 : 0;
}

void WebServerBase::JoinAcceptThread() {
  const ScopedLock held(m_lifecycle);
  if (!HasStrayAcceptThread()) return;
  // It may have begun to listen after all, and then ends as every other does.
  if (IsRunning()) {
    StopRunning();
    return;
  }
  KillAcceptThread();
  ReleaseClients();
  m_running = 0;
}

void WebServerBase::KillAcceptThread() {
  ::TerminateThread(m_acceptThread.Get(), kKilledAcceptThread);
  // Windows kills a thread asynchronously; what it uses is closed next.
  ::WaitForSingleObject(m_acceptThread.Get(), kEndMs);
  CloseListener();
  m_accepted.Reset();
  Network_ClientThread::FinishStart(*m_clients);
}

int WebServerBase::AddClient(kova::UniqueSocket& socket,
                             const std::string& address, uint32_t port) {
  OnClientConnected(address, port);
  m_addresses.Add(address);
  Network_ClientThread::Start(m_host, m_clients, socket, address);
  return 1;
}

uint32_t WebServerBase::ServerHost::ClientTimeoutMs() const {
  return m_server.ClientTimeoutMs();
}

void WebServerBase::ServerHost::OnReceived(uint32_t byteCount) {
  m_server.m_kilobytesReceived += byteCount / 1024.0;
}

bool WebServerBase::ServerHost::IsRequestComplete(
    const OTypedArray<char>& received, kova::RequestProgress& progress) {
  return m_server.IsRequestComplete(received, progress);
}

void WebServerBase::ServerHost::OnResponseSent(uint32_t byteCount) {
  m_server.m_kilobytesSent += byteCount / 1024.0;
  m_server.OnResponseSent(byteCount);
}

unsigned __stdcall WebServerBase::_AcceptThread(void* server) {
  return kova::RunGuarded(&GuardedAcceptThread, server);
}

unsigned WebServerBase::GuardedAcceptThread(void* server) {
  return static_cast<WebServerBase*>(server)->AcceptConnections();
}
