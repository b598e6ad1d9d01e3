#include "run/import_replacement.h"

#include <cstdint>
#include <cstring>

namespace kova::ctl {
namespace {

template <typename T>
T* At(HMODULE module, uint32_t offset) {
  return reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(module) + offset);
}

// Import tables need not be aligned.
uint64_t ReadThunk(const uint8_t* at) {
  uint64_t thunk = 0;
  std::memcpy(&thunk, at, sizeof(thunk));
  return thunk;
}

// The slot through which one imported library's function `name` is called.
void** FindSlot(HMODULE module, const IMAGE_IMPORT_DESCRIPTOR& library,
                const char* name) {
  const auto* names = At<uint8_t>(module, library.OriginalFirstThunk);
  auto* slot = At<uint8_t>(module, library.FirstThunk);
  for (uint64_t thunk = ReadThunk(names); thunk != 0;
       thunk = ReadThunk(names += sizeof(thunk)), slot += sizeof(thunk)) {
    if (IMAGE_SNAP_BY_ORDINAL64(thunk)) continue;
    // Behind the two bytes of the hint.
    const auto* const import =
        At<char>(module, static_cast<uint32_t>(thunk + sizeof(WORD)));
    if (std::strcmp(import, name) == 0) return reinterpret_cast<void**>(slot);
  }
  return nullptr;
}

// Null if the module does not import `name`.
void** FindSlot(HMODULE module, const char* name) {
  const auto* dos = At<IMAGE_DOS_HEADER>(module, 0);
  const auto* headers =
      At<IMAGE_NT_HEADERS>(module, static_cast<uint32_t>(dos->e_lfanew));
  const IMAGE_DATA_DIRECTORY& imports =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (imports.VirtualAddress == 0) return nullptr;
  const auto* library =
      At<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress);
  for (; library->OriginalFirstThunk != 0; ++library) {
    if (void** slot = FindSlot(module, *library, name)) return slot;
  }
  return nullptr;
}

// Import tables lie in read-only memory.
void WriteSlot(void** slot, void* function) {
  DWORD protection = 0;
  if (!::VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection)) {
    return;
  }
  std::memcpy(reinterpret_cast<char*>(slot), &function, sizeof(function));
  ::VirtualProtect(slot, sizeof(*slot), protection, &protection);
}

}  // namespace

ImportReplacement::ImportReplacement(HMODULE module, const char* name,
                                     void* function)
    : m_slot(FindSlot(module, name)) {
  if (m_slot == nullptr) return;
  std::memcpy(&m_original, reinterpret_cast<const char*>(m_slot),
              sizeof(m_original));
  WriteSlot(m_slot, function);
}

ImportReplacement::~ImportReplacement() {
  if (m_slot != nullptr) WriteSlot(m_slot, m_original);
}

}  // namespace kova::ctl
