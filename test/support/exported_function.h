// The functions of a loaded library, by name and type.
#pragma once

#include "base/windows_api.h"

namespace kova::test {

// Null if `module` exports no such function.
template <typename Function>
[[nodiscard]] Function* ExportedFunction(HMODULE module, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace kova::test
