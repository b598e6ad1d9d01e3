// Stands in for the import patch of the Windows tests, with the same use: the
// stand-in calls go through slots that tests may replace for a scope.
#pragma once

#include "base/windows_api.h"

namespace kova::test {

// The slot of the stand-in function `name`. Ends the program where there is
// none: a test that patches nothing proves nothing.
void** FindImportSlot(HMODULE module, const char* name);

// From construction to destruction, calls of `name` go to `replacement`.
template <typename Function>
class ImportPatch {
 public:
  ImportPatch(HMODULE module, const char* name, Function* replacement)
      : m_slot(FindImportSlot(module, name)),
        m_original(reinterpret_cast<Function*>(*m_slot)) {
    *m_slot = reinterpret_cast<void*>(replacement);
  }
  ~ImportPatch() { *m_slot = reinterpret_cast<void*>(m_original); }

  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  [[nodiscard]] Function* Original() const { return m_original; }

 private:
  void** const m_slot;
  Function* const m_original;
};

}  // namespace kova::test
