// The extension under test, loaded as the server loads it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/windows_api.h"
#include "kova/extension.h"

namespace kova::ctl::check {

// Whose code runs: one of the seven functions that the server calls, or what of
// the extension runs without the server's calling it. The numbers travel
// between the processes of one check, nowhere else.
enum class Callee : uint32_t {
  kNone,  // outside the extension
  kLoad,
  kVersions,
  kSetRestart,
  kInitialize,
  kHandle,
  kLength,
  kCopy,
  kRelease,
  kEnd,
  kOwnThread,  // a thread that the extension itself started
};

// The export's name, or words for the places that are no export. Static.
const char* CalleeName(Callee callee);

// Its functions as they were found; null where there is none. Only read after
// the loading steps, by any number of threads.
struct Extension {
  HMODULE module = nullptr;  // weak: never unloaded, as in the server
  KOVA_GetInterfaceVersionsSupported* versions = nullptr;
  KOVA_SetKOVAServerRestartRoutine* setRestart = nullptr;
  KOVA_WebServerInitialize* initialize = nullptr;
  KOVA_HandleServerRequest* handle = nullptr;
  KOVA_GetResponseLength* length = nullptr;
  KOVA_GetResponse* copy = nullptr;
  KOVA_ReleaseResponse* release = nullptr;
  KOVA_Context context = nullptr;
};

// Looks the seven functions up in extension.module.
void FindFunctions(Extension& extension);

// The name under which `module` exports something that contains `name` but is
// not `name`: a function whose name was decorated. Empty if there is none.
std::string DecoratedExport(HMODULE module, const std::string& name);

}  // namespace kova::ctl::check
