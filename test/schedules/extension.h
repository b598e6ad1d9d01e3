// A driver extension whose library is this program.
#pragma once

#include "base/windows_api.h"
#include "kova/extension.h"

namespace kova::test {

// What a request whose address holds it makes of the answer:
//   act=keep      keeps the connection open
//   act=big       is more than a narrow window takes
//   act=restart   comes after it asked for a restart, twice
//   act=stale     leaves a would-block code behind as the last error
//   act=wait      comes once the gate is open
struct ExtensionState {
  KOVA_RestartRoutine* restart = nullptr;
  bool gateIsOpen = true;
  bool leavesError = false;
  int inside = 0;     // requests that wait at the gate
  int responses = 0;  // handed out and not released
  int restarts = 0;   // that were asked for
};
[[nodiscard]] ExtensionState& TheExtension();
// Asks the server for a restart, as an extension does on any thread.
void AskForRestart();

// The usual answer, and its beginning.
inline constexpr char kAnswer[] =
    "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
inline constexpr size_t kBigBytes = 3000;

[[nodiscard]] HMODULE ExtensionModule();
// Null for a name that the extension does not have.
[[nodiscard]] FARPROC ExtensionFunction(const char* name);

}  // namespace kova::test
