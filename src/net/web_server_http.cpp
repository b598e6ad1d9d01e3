#include "net/web_server_http.h"

#include "base/module_pin.h"
#include "http/http_request.h"
#include "log/server_logger.h"

namespace {

// After its last touch of the server the restart thread has only to end.
constexpr DWORD kThreadEndMs = 1000;
constexpr DWORD kAskAgainMs = 1000;

HANDLE CreateAutoResetEvent() {
  return ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
}

}  // namespace

WebServerHTTP::WebServerHTTP(ThreadProcedure restartThread) {
  m_monitor.logger = GetServerLogger();
  m_monitor.restartEvent.Reset(CreateAutoResetEvent());
  m_monitor.shutdownEvent.Reset(CreateAutoResetEvent());
  m_monitor.endedEvent.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  m_monitor.modulePin = kova::PinThisModule();
  m_monitor.restartThread.Reset(reinterpret_cast<HANDLE>(::_beginthreadex(
      nullptr, 0, restartThread, this, 0, &m_monitor.restartThreadId)));
  if (m_monitor.restartThread.IsValid()) return;
  const kova::UniqueModule unused(m_monitor.modulePin);
}

WebServerHTTP::~WebServerHTTP() = default;

int WebServerHTTP::OnClientConnected(const std::string& /*address*/,
                                     uint32_t /*port*/) {
  return 0;
}

int WebServerHTTP::OnResponseSent(uint32_t /*byteCount*/) { return 0; }

bool WebServerHTTP::IsRequestComplete(const OTypedArray<char>& received) {
  return HTTPRequest::IsComplete(received.Data(), received.Count());
}

void WebServerHTTP::JoinRestartThread() {
  if (!m_monitor.restartThread.IsValid()) return;
  // Asked again and again: a signal that the system refused would otherwise
  // leave the host waiting for ever.
  while (!AwaitRestartThread()) {
    if (m_monitor.shutdownEvent.IsValid()) {
      ::SetEvent(m_monitor.shutdownEvent.Get());
    }
  }
  ::WaitForSingleObject(m_monitor.restartThread.Get(), kThreadEndMs);
  m_monitor.restartThread.Reset();
}

// Whether the restart thread has stopped touching this object; waits for it for
// a while. A host that stops the server while it holds the loader's lock would
// wait for ever for the thread itself; hence the event beside it. A thread that
// was killed with the rest of its process never sets the event; hence the
// thread beside it.
bool WebServerHTTP::AwaitRestartThread() const {
  const HANDLE either[] = {m_monitor.restartThread.Get(),
                           m_monitor.endedEvent.Get()};
  const DWORD count = m_monitor.endedEvent.IsValid() ? 2 : 1;
  const DWORD woken =
      ::WaitForMultipleObjects(count, either, FALSE, kAskAgainMs);
  return woken == WAIT_OBJECT_0 || woken == WAIT_OBJECT_0 + 1;
}
