// The library's entry: what lives from process attach to process detach.
#include "base/windows_api.h"
#include "crash/crash_utility.h"
#include "dispatch/web_server_interface.h"
#include "server/network_monitor.h"

namespace {

// The type that extensions know returns nothing.
void Restart() { NetworkMonitor::SignalRestart(); }

}  // namespace

// The entry of the C runtime, which calls DllMain and makes and destroys what
// the library has in static memory.
extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE, DWORD, LPVOID);

// Where the image is entered; the linker is told so. Deliberate: at the end of
// the process (`reserved` is not null then) nothing is freed, by DllMain or by
// the runtime. The other threads are gone in the middle of anything, the heap
// included, and the system takes everything back anyway.
extern "C" BOOL WINAPI EnterLibrary(HINSTANCE instance, DWORD reason,
                                    LPVOID reserved) {
  if (reason == DLL_PROCESS_DETACH && reserved != nullptr) return TRUE;
  return ::DllMainCRTStartup(instance, reason, reserved);
}

// Runs under the loader lock. A server that still runs at detach is not
// stopped: waiting for its threads here could never end.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason,
                               LPVOID /*reserved*/) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      CrashUtility::CreateDumpMutex();
      kova::CreateExtensionCache(&Restart);
      break;
    case DLL_PROCESS_DETACH:
      kova::ServerObject::CloseRestartEvent();
      kova::DestroyExtensionCache();
      CrashUtility::CloseDumpMutex();
      break;
    default:
      break;
  }
  return TRUE;
}
