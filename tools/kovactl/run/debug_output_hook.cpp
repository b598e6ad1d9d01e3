#include "run/debug_output_hook.h"

#include <atomic>
#include <cstdint>
#include <cstring>

namespace kova::ctl {
namespace {

using DebugOutput = void WINAPI(const wchar_t* text);

std::atomic<LinePump*> g_pump{nullptr};
std::atomic<DebugOutput*> g_original{&::OutputDebugStringW};

void WINAPI PushAndPassOn(const wchar_t* text) {
  LinePump* const pump = g_pump;
  if (pump != nullptr && text != nullptr) pump->PushLine(text);
  g_original.load()(text);
}

template <typename T>
T* At(HMODULE module, uint32_t offset) {
  return reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(module) + offset);
}

// The slot through which one imported library's function `name` is called.
void** FindSlot(HMODULE module, const IMAGE_IMPORT_DESCRIPTOR& library,
                const char* name) {
  const auto* names = At<IMAGE_THUNK_DATA>(module, library.OriginalFirstThunk);
  auto* slots = At<IMAGE_THUNK_DATA>(module, library.FirstThunk);
  for (; names->u1.AddressOfData != 0; ++names, ++slots) {
    if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
    const auto* import = At<IMAGE_IMPORT_BY_NAME>(
        module, static_cast<uint32_t>(names->u1.AddressOfData));
    if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) == 0) {
      return reinterpret_cast<void**>(&slots->u1.Function);
    }
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
  *slot = function;
  ::VirtualProtect(slot, sizeof(*slot), protection, &protection);
}

}  // namespace

DebugOutputHook::DebugOutputHook(HMODULE module, LinePump& pump)
    : m_slot(FindSlot(module, "OutputDebugStringW")) {
  g_pump = &pump;
  if (m_slot == nullptr) return;
  g_original = reinterpret_cast<DebugOutput*>(*m_slot);
  WriteSlot(m_slot, reinterpret_cast<void*>(&PushAndPassOn));
}

DebugOutputHook::~DebugOutputHook() {
  if (m_slot != nullptr) {
    WriteSlot(m_slot, reinterpret_cast<void*>(g_original.load()));
  }
  g_pump = nullptr;
}

}  // namespace kova::ctl
