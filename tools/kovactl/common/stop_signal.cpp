#include "common/stop_signal.h"

namespace kova::ctl {
namespace {

// Never closed: a handler's thread may still use them after the object is gone.
HANDLE g_raised = nullptr;
HANDLE g_finished = nullptr;

BOOL WINAPI OnControl(DWORD event) {
  ::SetEvent(g_raised);
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
    ::WaitForSingleObject(g_finished, INFINITE);
  }
  return TRUE;
}

}  // namespace

StopSignal::StopSignal() {
  g_raised = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  g_finished = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  // A parent may have told its children to ignore Ctrl-C.
  ::SetConsoleCtrlHandler(nullptr, FALSE);
  ::SetConsoleCtrlHandler(&OnControl, TRUE);
}

StopSignal::~StopSignal() {
  ::SetConsoleCtrlHandler(&OnControl, FALSE);
  ::SetEvent(g_finished);
}

bool StopSignal::Wait(std::optional<uint32_t> seconds) const {
  const DWORD milliseconds = seconds ? *seconds * 1000 : INFINITE;
  return ::WaitForSingleObject(g_raised, milliseconds) == WAIT_OBJECT_0;
}

HANDLE StopSignal::Event() const { return g_raised; }

}  // namespace kova::ctl
