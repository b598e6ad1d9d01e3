#include "test/support/import_patch.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kova::test {
namespace {

template <typename T>
T* At(char* base, DWORD offset) {
  return reinterpret_cast<T*>(base + offset);
}

// Tables of thunks need not be aligned.
uint64_t ReadThunk(const char* at) {
  uint64_t thunk = 0;
  std::memcpy(&thunk, at, sizeof(thunk));
  return thunk;
}

void** FindInDescriptor(char* base, const IMAGE_IMPORT_DESCRIPTOR& descriptor,
                        const char* name) {
  if (descriptor.OriginalFirstThunk == 0) return nullptr;
  const char* names = base + descriptor.OriginalFirstThunk;
  char* slot = base + descriptor.FirstThunk;
  for (; ReadThunk(names) != 0;
       names += sizeof(uint64_t), slot += sizeof(uint64_t)) {
    const uint64_t thunk = ReadThunk(names);
    if (IMAGE_SNAP_BY_ORDINAL64(thunk)) continue;
    // Behind the two bytes of the hint.
    if (std::strcmp(base + thunk + sizeof(WORD), name) == 0) {
      return reinterpret_cast<void**>(slot);
    }
  }
  return nullptr;
}

}  // namespace

void** FindImportSlot(HMODULE module, const char* name) {
  if (module == nullptr) module = ::GetModuleHandleW(nullptr);
  char* const base = reinterpret_cast<char*>(module);
  const auto* dos = At<IMAGE_DOS_HEADER>(base, 0);
  const auto* headers =
      At<IMAGE_NT_HEADERS>(base, static_cast<DWORD>(dos->e_lfanew));
  const IMAGE_DATA_DIRECTORY& directory =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (directory.VirtualAddress == 0) return nullptr;
  for (auto* descriptor =
           At<IMAGE_IMPORT_DESCRIPTOR>(base, directory.VirtualAddress);
       descriptor->Name != 0; ++descriptor) {
    void** const slot = FindInDescriptor(base, *descriptor, name);
    if (slot != nullptr) return slot;
  }
  return nullptr;
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
