#include "net/web_server_http.h"

#include "base/module_reference.h"
#include "http/request_progress.h"
#include "log/server_logger.h"

namespace {

// After its last touch of the server the restart thread has only to end.
constexpr DWORD kThreadEndMs = 1000;
constexpr DWORD kAskAgainMs = 1000;
constexpr int kMostAsked = 60;
constexpr DWORD kAfterFailedWaitMs = 50;

}  // namespace

WebServerHTTP::WebServerHTTP(ThreadProcedure restartThread,
                             HANDLE restartEvent) {
  m_monitor.logger = GetServerLogger();
  m_monitor.restartEvent = restartEvent;
  m_monitor.shutdownEvent.Reset(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
  m_monitor.endedEvent.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  m_monitor.moduleReference = kova::AddModuleReference();
  m_monitor.restartThread.Reset(reinterpret_cast<HANDLE>(::_beginthreadex(
      nullptr, 0, restartThread, this, 0, &m_monitor.restartThreadId)));
  if (m_monitor.restartThread.IsValid()) return;
  const kova::UniqueModule unused(m_monitor.moduleReference);
}

WebServerHTTP::~WebServerHTTP() = default;

int WebServerHTTP::OnClientConnected(const std::string& /*address*/,
                                     uint32_t /*port*/) {
  return 0;
}

int WebServerHTTP::OnResponseSent(uint32_t /*byteCount*/) { return 0; }

bool WebServerHTTP::IsRequestComplete(const OTypedArray<char>& received,
                                      kova::RequestProgress& progress) {
  return progress.IsComplete(
      {received.Data(), static_cast<size_t>(received.Count())});
}

bool WebServerHTTP::JoinRestartThread() {
  if (!m_monitor.restartThread.IsValid()) return true;
  DWORD woken = AwaitRestartThread();
  // A signal that the system refused would otherwise leave the host waiting
  // for ever, and so would a wait that fails.
  for (int asked = 1; woken > WAIT_OBJECT_0 + 1; ++asked) {
    if (asked == kMostAsked) return false;
    if (woken == WAIT_FAILED) ::Sleep(kAfterFailedWaitMs);
    if (m_monitor.shutdownEvent.IsValid()) {
      ::SetEvent(m_monitor.shutdownEvent.Get());
    }
    woken = AwaitRestartThread();
  }
  // A thread with a reference to the library may end when it can. Behind the
  // threads of thousands of connections it would keep the host waiting.
  if (m_monitor.moduleReference == nullptr) {
    ::WaitForSingleObject(m_monitor.restartThread.Get(), kThreadEndMs);
  }
  m_monitor.restartThread.Reset();
  return true;
}

// What the wait gave: WAIT_OBJECT_0 or the next number once the restart thread
// has stopped touching this object. A host that stops the server while it holds
// the loader's lock would wait in vain for the thread itself; hence the event
// beside it. A thread that was killed with the rest of its process never sets
// the event; hence the thread beside it.
DWORD WebServerHTTP::AwaitRestartThread() const {
  const HANDLE either[] = {m_monitor.restartThread.Get(),
                           m_monitor.endedEvent.Get()};
  const DWORD count = m_monitor.endedEvent.IsValid() ? 2 : 1;
  return ::WaitForMultipleObjects(count, either, FALSE, kAskAgainMs);
}
