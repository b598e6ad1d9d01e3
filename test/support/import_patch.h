// Replaces one imported function of a loaded module for the span of a scope,
// by writing the module's import address table. Works for the test program
// itself as well as for a DLL it loaded, on Windows as under Wine, so that the
// product needs no seams for its tests.
#pragma once

#include <functional>

#include "base/windows_api.h"

namespace kova::test {

// Calls `visit` with the name and the slot of each function that `module`
// (null: this program) imports by name, in the order of its table. Takes no
// memory, for what takes memory may be what is patched.
using ImportVisitor = std::function<void(const char* name, void** slot)>;
void VisitImports(HMODULE module, const ImportVisitor& visit);

// The slot through which `module` calls the function it imports under `name`;
// null if it imports no such function.
void** FindImportSlot(HMODULE module, const char* name);

// What an import slot holds. Slots need not be aligned.
[[nodiscard]] void* ReadImportSlot(void* const* slot);
// Writes an import slot, which lies in read-only memory.
void WriteImportSlot(void** slot, void* function);

// From construction to destruction, calls of `module` (null: this program) to
// its import `name` go to `replacement`. A missing import ends the program
// with a message: a test that patches nothing proves nothing. Patches of one
// function nest like scopes. The replacement may be called on any thread.
template <typename Function>
class ImportPatch {
 public:
  ImportPatch(HMODULE module, const char* name, Function* replacement)
      : m_slot(Find(module, name)),
        m_original(reinterpret_cast<Function*>(ReadImportSlot(m_slot))) {
    WriteImportSlot(m_slot, reinterpret_cast<void*>(replacement));
  }
  ~ImportPatch() {
    WriteImportSlot(m_slot, reinterpret_cast<void*>(m_original));
  }

  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

  // What the import called before this patch.
  [[nodiscard]] Function* Original() const { return m_original; }

 private:
  static void** Find(HMODULE module, const char* name);

  void** const m_slot;
  Function* const m_original;
};

// Ends the program: there is no import `name` to replace.
[[noreturn]] void FailMissingImport(const char* name);

template <typename Function>
void** ImportPatch<Function>::Find(HMODULE module, const char* name) {
  void** const slot = FindImportSlot(module, name);
  if (slot == nullptr) FailMissingImport(name);
  return slot;
}

}  // namespace kova::test
