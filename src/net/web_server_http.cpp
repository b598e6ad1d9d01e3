#include "net/web_server_http.h"

#include "base/module_pin.h"
#include "http/http_request.h"
#include "log/server_logger.h"

namespace {

// After its last touch of the server the restart thread has only to end.
constexpr DWORD kThreadEndMs = 1000;

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
  HTTPRequest request;
  return request.Parse(received.Data(), received.Count(), false);
}

void WebServerHTTP::JoinRestartThread() {
  if (!m_monitor.restartThread.IsValid()) return;
  // A host that stops the server while it holds the loader's lock would wait
  // for ever for the thread itself; hence the event beside it. A thread that
  // was killed with the rest of its process never sets the event; hence the
  // thread beside it.
  const HANDLE thread = m_monitor.restartThread.Get();
  const HANDLE ended = m_monitor.endedEvent.Get();
  if (ended == nullptr) {
    ::WaitForSingleObject(thread, INFINITE);
  } else {
    const HANDLE either[] = {ended, thread};
    ::WaitForMultipleObjects(2, either, FALSE, INFINITE);
    ::WaitForSingleObject(thread, kThreadEndMs);
  }
  m_monitor.restartThread.Reset();
}
