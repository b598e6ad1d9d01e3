#include "check/extension.h"

#include <iterator>
#include <span>

#include "dispatch/web_server_interface.h"

namespace kova::ctl::check {
namespace {

constexpr const char* kNames[] = {
    "no entry",
    "DllMain, while loading",
    kVersionsExport,
    kRestartExport,
    kInitializeExport,
    kHandleExport,
    kLengthExport,
    kCopyExport,
    kReleaseExport,
    "the end of the process",
    "a thread of the extension's own",
};

template <typename Function>
void Find(HMODULE module, const char* name, Function*& found) {
  found = reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

template <typename Type>
const Type* At(HMODULE module, DWORD offset) {
  return reinterpret_cast<const Type*>(reinterpret_cast<const char*>(module) +
                                       offset);
}

// The offsets of the names in the export table of a loaded module.
std::span<const DWORD> ExportNames(HMODULE module) {
  const auto* const dos = At<IMAGE_DOS_HEADER>(module, 0);
  const auto* const header =
      At<IMAGE_NT_HEADERS64>(module, static_cast<DWORD>(dos->e_lfanew));
  const IMAGE_DATA_DIRECTORY& directory =
      header->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (directory.Size == 0) return {};
  const auto* const exports =
      At<IMAGE_EXPORT_DIRECTORY>(module, directory.VirtualAddress);
  return {At<DWORD>(module, exports->AddressOfNames), exports->NumberOfNames};
}

}  // namespace

const char* CalleeName(Callee callee) {
  const auto index = static_cast<uint32_t>(callee);
  return index < std::size(kNames) ? kNames[index] : kNames[0];
}

void FindFunctions(Extension& extension) {
  const HMODULE module = extension.module;
  Find(module, kVersionsExport, extension.versions);
  Find(module, kRestartExport, extension.setRestart);
  Find(module, kInitializeExport, extension.initialize);
  Find(module, kHandleExport, extension.handle);
  Find(module, kLengthExport, extension.length);
  Find(module, kCopyExport, extension.copy);
  Find(module, kReleaseExport, extension.release);
}

std::string DecoratedExport(HMODULE module, const std::string& name) {
  for (const DWORD offset : ExportNames(module)) {
    const std::string exported = At<char>(module, offset);
    const size_t at = exported.find(name);
    if (at == std::string::npos || exported == name) continue;
    // WSIE_GetResponse is a part of WSIE_GetResponseLength's own name.
    if (at == 0 && exported.starts_with("WSIE_") &&
        exported.find('@') == std::string::npos) {
      continue;
    }
    return exported;
  }
  return {};
}

}  // namespace kova::ctl::check
