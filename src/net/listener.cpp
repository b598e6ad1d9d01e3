#include "net/listener.h"

#include <cerrno>

#include "base/kept_blocks.h"
#include "crash/guard.h"
#include "log/log_line.h"
#include "net/client_list.h"
#include "net/network_client_thread.h"

namespace kova {
namespace {

using tk::LogChannel;

constexpr const char* kRun = "WebServerBase::Run";
constexpr DWORD kAnswerMs = 30000;
constexpr DWORD kEndMs = 1000;
constexpr unsigned kEnded = 0;
constexpr unsigned kFailedOrKilled = 4660;

void LogNoAnswer() {
  LogLine(LogChannel::Error, kRun)
      << L"Run: Unable to get response from Accept Thread within specified "
         L"Timeout. Timeout:"
      << kAnswerMs;
}

}  // namespace

int Listener::Run(uint32_t port, uint32_t bindAddress) {
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
  m_clients.Open();
  if (!StartAcceptThread()) return 0;
  return AwaitAcceptThread();
}

bool Listener::StartAcceptThread() {
  m_startedEvent.Reset(::CreateEventW(nullptr, FALSE, TRUE, nullptr));
  ::ResetEvent(m_startedEvent.Get());
  m_startedSignal = m_startedEvent.Get();
  errno = 0;
  m_acceptThread.Reset(reinterpret_cast<HANDLE>(::_beginthreadex(
      nullptr, 0, &Listener::_AcceptThread, this, 0, &m_acceptThreadId)));
  if (m_acceptThread.IsValid()) return true;

  // Deliberate: the started event stays open here; the next Run() closes it.
  const int error = errno;
  LogLine(LogChannel::Error, kRun)
      << L"_beginthreadex(...) failure, for Launch Thread[Run] errno:" << error;
  return false;
}

int Listener::AwaitAcceptThread() {
  const bool answered =
      ::WaitForSingleObject(m_startedEvent.Get(), kAnswerMs) == WAIT_OBJECT_0;
  if (!answered) {
    LogNoAnswer();
    GiveUpStartedEvent();
  }
  m_startedEvent.Reset();
  return answered ? 1 : 0;
}

void Listener::GiveUpStartedEvent() {
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
bool Listener::HasStrayAcceptThread() {
  return m_acceptThread.IsValid() &&
         ::WaitForSingleObject(m_acceptThread.Get(), kEndMs) != WAIT_OBJECT_0;
}

int Listener::Stop() {
  const ScopedLock held(m_lifecycle);
  return IsRunning() ? StopRunning() : 0;
}

int Listener::StopRunning() {
  const UniqueWsaEvent shutdown = m_loop.TakeShutdownEvent();
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
  m_clients.ReleaseClients();
  FreeKeptBlocks();
  m_running = 0;
  return ended ? 1 : 0;
}

void Listener::JoinAcceptThread() {
  const ScopedLock held(m_lifecycle);
  if (!HasStrayAcceptThread()) return;
  // It may have begun to listen after all, and then ends as every other does.
  if (IsRunning()) {
    StopRunning();
    return;
  }
  KillAcceptThread();
  m_clients.ReleaseClients();
  m_running = 0;
}

void Listener::KillAcceptThread() {
  ::TerminateThread(m_acceptThread.Get(), kFailedOrKilled);
  // Windows kills a thread asynchronously; what it uses is closed next.
  ::WaitForSingleObject(m_acceptThread.Get(), kEndMs);
  m_loop.Close();
  Network_ClientThread::FinishStart(m_clients);
}

unsigned __stdcall Listener::_AcceptThread(void* listener) {
  return RunGuarded(&GuardedAcceptThread, listener);
}

unsigned Listener::GuardedAcceptThread(void* listener) {
  return static_cast<Listener*>(listener)->AcceptConnections();
}

unsigned Listener::AcceptConnections() {
  bool ended = false;
  if (m_loop.Listen(m_port, m_bindAddress)) {
    m_running = 1;
    AnswerRun();
    ended = m_loop.Serve();
  }
  m_loop.Close();
  AnswerRun();
  return ended ? kEnded : kFailedOrKilled;
}

// Lets Run() go on. Harmless when it has been let go, or has given up, before.
void Listener::AnswerRun() {
  const HANDLE started = m_startedSignal.exchange(nullptr);
  if (started != nullptr) ::SetEvent(started);
}

}  // namespace kova
