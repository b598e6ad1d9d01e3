#include "base/module_pin.h"

namespace kova {

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

}  // namespace kova
