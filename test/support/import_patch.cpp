#include "test/support/import_patch.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kova::test {
namespace {

// Tables of thunks need not be aligned.
uint64_t ReadThunk(const char* at) {
  uint64_t thunk = 0;
  std::memcpy(&thunk, at, sizeof(thunk));
  return thunk;
}

}  // namespace

void VisitImports(HMODULE module, const ImportVisitor& visit) {
  if (module == nullptr) module = ::GetModuleHandleW(nullptr);
  char* const base = reinterpret_cast<char*>(module);
  const auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
  const auto* headers =
      reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const DWORD table =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT]
          .VirtualAddress;
  if (table == 0) return;
  for (auto* from = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + table);
       from->Name != 0; ++from) {
    if (from->OriginalFirstThunk == 0) continue;
    const char* names = base + from->OriginalFirstThunk;
    char* slot = base + from->FirstThunk;
    for (; ReadThunk(names) != 0;
         names += sizeof(uint64_t), slot += sizeof(uint64_t)) {
      const uint64_t thunk = ReadThunk(names);
      if (IMAGE_SNAP_BY_ORDINAL64(thunk)) continue;
      // Behind the two bytes of the hint.
      visit(base + thunk + sizeof(WORD), reinterpret_cast<void**>(slot));
    }
  }
}

void** FindImportSlot(HMODULE module, const char* name) {
  void** found = nullptr;
  VisitImports(module, [name, &found](const char* import, void** slot) {
    if (found == nullptr && std::strcmp(import, name) == 0) found = slot;
  });
  return found;
}

void* ReadImportSlot(void* const* slot) {
  void* function = nullptr;
  // As bytes: the type of a slot promises an alignment that it may not have.
  std::memcpy(static_cast<void*>(&function),
              reinterpret_cast<const char*>(slot), sizeof(function));
  return function;
}

void WriteImportSlot(void** slot, void* function) {
  DWORD old = 0;
  ::VirtualProtect(static_cast<void*>(slot), sizeof(*slot), PAGE_READWRITE,
                   &old);
  ::InterlockedExchangePointer(slot, function);
  ::VirtualProtect(static_cast<void*>(slot), sizeof(*slot), old, &old);
}

void FailMissingImport(const char* name) {
  std::fprintf(stderr, "there is no import named %s to replace\n", name);
  std::abort();
}

}  // namespace kova::test
