// Stands in for a function that a loaded library imports.
#pragma once

#include "base/windows_api.h"

namespace kova::ctl {

// From construction to destruction, `module` calls `function` where it imports
// the function `name`, from whatever library. Others' calls stay as they are,
// and so do those of code that asks for the address itself. The library's file
// is not touched.
class ImportReplacement {
 public:
  ImportReplacement(HMODULE module, const char* name, void* function);
  // The module's threads must be gone: one may still be on its way into
  // `function`.
  ~ImportReplacement();

  ImportReplacement(const ImportReplacement&) = delete;
  ImportReplacement& operator=(const ImportReplacement&) = delete;

  // False if the module has no such import: nothing is replaced.
  [[nodiscard]] bool IsInstalled() const { return m_slot != nullptr; }
  // What the module called before; null if nothing is replaced.
  [[nodiscard]] void* Original() const { return m_original; }

 private:
  void** const m_slot;
  void* m_original = nullptr;
};

}  // namespace kova::ctl
