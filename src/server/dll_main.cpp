// The library's entry: what lives from process attach to process detach.
#include "base/windows_api.h"
#include "crash/crash_utility.h"
#include "dispatch/extension_cache.h"
#include "server/network_monitor.h"
#include "server/server_object.h"

namespace {

// The type that extensions know returns nothing.
void Restart() { NetworkMonitor::SignalRestart(); }

}  // namespace

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
