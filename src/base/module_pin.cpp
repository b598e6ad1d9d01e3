#include "base/module_pin.h"

namespace kova {

#if defined(_UCRT)

// This C runtime takes a reference for each thread that it starts, and gives it
// back in the same way. To end the thread behind its back would lose that one.
HMODULE PinThisModule() { return nullptr; }

void EndThread(HMODULE /*pin*/, DWORD exitCode) { ::_endthreadex(exitCode); }

#else

HMODULE PinThisModule() {
  HMODULE module = nullptr;
  const BOOL found =
      ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                           reinterpret_cast<LPCWSTR>(&PinThisModule), &module);
  return found ? module : nullptr;
}

void EndThread(HMODULE pin, DWORD exitCode) {
  if (pin != nullptr) ::FreeLibraryAndExitThread(pin, exitCode);
  ::ExitThread(exitCode);
}

#endif

}  // namespace kova
