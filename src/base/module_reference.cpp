#include "base/module_reference.h"

namespace kova {

#if defined(_UCRT)

// This C runtime takes a reference for each thread that it starts, and gives it
// back in the same way. To end the thread behind its back would lose that one.
HMODULE AddModuleReference() { return nullptr; }

void EndThread(HMODULE /*reference*/, DWORD exitCode) {
  ::_endthreadex(exitCode);
}

#else

HMODULE AddModuleReference() {
  HMODULE module = nullptr;
  const BOOL found = ::GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
      reinterpret_cast<LPCWSTR>(&AddModuleReference), &module);
  return found ? module : nullptr;
}

void EndThread(HMODULE reference, DWORD exitCode) {
  if (reference != nullptr) ::FreeLibraryAndExitThread(reference, exitCode);
  ::ExitThread(exitCode);
}

#endif

}  // namespace kova
