// The HTTP server object, with the fields of its network monitor.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "base/handles.h"
#include "base/o_critical_section.h"
#include "log/logger.h"
#include "net/web_server_base.h"

// What the network monitor keeps with the server.
struct NetworkMonitorState {
  std::wstring computerName;  // as at the last start
  uint32_t port = 6161;       // as at the last start with TCP enabled
  std::shared_ptr<tk::Logger> logger;
  HANDLE restartEvent = nullptr;           // auto-reset; not owned
  kova::UniqueKernelHandle shutdownEvent;  // auto-reset
  kova::UniqueKernelHandle restartThread;
  unsigned restartThreadId = 0;
  OCriticalSection restartLock;  // held across a whole start or restart

  // Set by the restart thread as the last thing it does with this object.
  kova::UniqueKernelHandle endedEvent;  // manual-reset
  // Set when a stop begins: no restart listens again from here on, and the
  // restart thread ends even where it has no shutdown event to wait for.
  std::atomic<bool> ending{false};
  // The restart thread's; its last call drops it.
  HMODULE moduleReference = nullptr;
};

class WebServerHTTP : public WebServerBase {
 public:
  // A thread procedure as _beginthreadex takes it.
  using ThreadProcedure = unsigned(__stdcall*)(void*);

  // Makes the monitor's other events and starts the restart thread, which runs
  // `restartThread` with this object as its argument. `restartEvent` is an
  // auto-reset event, unsignalled, that outlives this object; null where the
  // system had none.
  WebServerHTTP(ThreadProcedure restartThread, HANDLE restartEvent);
  ~WebServerHTTP() override;

  int OnClientConnected(const std::string& address, uint32_t port) override;
  int OnResponseSent(uint32_t byteCount) override;
  bool IsRequestComplete(const OTypedArray<char>& received,
                         kova::RequestProgress& progress) override;

  NetworkMonitorState& Monitor() { return m_monitor; }

  // Waits until the restart thread, which has been told to end, no longer
  // touches this object; tells it again every second. Returns true, at once if
  // there is no such thread; false after about a minute, in which a restart
  // under way has long come to its end: this object must then not be destroyed.
  [[nodiscard]] bool JoinRestartThread();

 private:
  [[nodiscard]] DWORD AwaitRestartThread() const;

  NetworkMonitorState m_monitor;
};
