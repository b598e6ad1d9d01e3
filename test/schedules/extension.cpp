#include "test/schedules/extension.h"

#include <cstring>
#include <string>

#include "test/schedules/machine.h"
#include "test/schedules/thunk.h"

namespace kova::test {
namespace {

ExtensionState g_state;

Scheduler& Threads() { return TheMachine().scheduler; }

void Versions(uint32_t* versions, uint32_t /*capacity*/) {
  versions[0] = KOVA_INTERFACE_VERSION;
}

void TakeRestart(KOVA_RestartRoutine* routine) { g_state.restart = routine; }

KOVA_Context Initialise() { return &g_state; }

KOVA_Response Handle(KOVA_Context, const void* request, uint32_t lengthBytes,
                     const wchar_t*, uint32_t, uint32_t* keepOpen) {
  const std::string text(static_cast<const char*>(request), lengthBytes);
  const auto asks = [&text](const char* act) {
    return text.find(act) != std::string::npos;
  };
  Threads().Point("entering the extension");
  if (asks("act=keep")) *keepOpen = 1;
  g_state.leavesError = asks("act=stale");
  if (asks("act=restart")) {
    AskForRestart();
    AskForRestart();
  }
  if (asks("act=wait")) {
    ++g_state.inside;
    Threads().Await("waiting in the extension",
                    [] { return g_state.gateIsOpen; });
    --g_state.inside;
  }
  ++g_state.responses;
  return new uint32_t(asks("act=big") ? kBigBytes : sizeof(kAnswer) - 1);
}

uint32_t Length(KOVA_Context, KOVA_Response response) {
  return *static_cast<uint32_t*>(response);
}

int32_t Copy(KOVA_Context, KOVA_Response, void* buffer, uint32_t bytes) {
  std::memset(buffer, 'b', bytes);
  std::memcpy(buffer, kAnswer, sizeof(kAnswer) - 1);
  return 1;
}

void Release(KOVA_Context, KOVA_Response response) {
  --g_state.responses;
  delete static_cast<uint32_t*>(response);
  if (g_state.leavesError) ::SetLastError(WSAEWOULDBLOCK);
}

}  // namespace

ExtensionState& TheExtension() { return g_state; }

void AskForRestart() {
  ++g_state.restarts;
  g_state.restart();
}

HMODULE ExtensionModule() { return reinterpret_cast<HMODULE>(&g_state); }

FARPROC ExtensionFunction(const char* name) {
  const Thunk functions[] = {
      By("WSIE_GetInterfaceVersionsSupported", &Versions),
      By("WSIE_SetKOVAServerRestartRoutine", &TakeRestart),
      By("WSIE_WebServerInitialize", &Initialise),
      By("WSIE_HandleServerRequest", &Handle),
      By("WSIE_GetResponseLength", &Length),
      By("WSIE_GetResponse", &Copy),
      By("WSIE_ReleaseResponse", &Release),
  };
  for (const Thunk& function : functions) {
    if (std::strcmp(function.name, name) == 0) {
      return reinterpret_cast<FARPROC>(function.function);
    }
  }
  return nullptr;
}

}  // namespace kova::test
