// The registry, the spooler, the log's sinks and libraries, as a model.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "base/windows_api.h"
#include "kova/extension.h"
#include "test/schedules/thunk.h"

namespace kova::test {

// What is always the same costs no time here: every setting of the server is
// absent, every printer has the extension of test/schedules/extension.cpp.
class SystemModel {
 public:
  static constexpr uint32_t kUsualMask = 0xE0000000;
  static constexpr uintptr_t kFirstNumber = 0x6A000000;

  // The library's calls, see SystemThunks().
  LSTATUS OpenKey(HKEY root, LPCWSTR path, DWORD options, REGSAM access,
                  PHKEY key);
  LSTATUS CreateKey(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR kind,
                    DWORD options, REGSAM access, LPSECURITY_ATTRIBUTES,
                    PHKEY key, LPDWORD disposition);
  LSTATUS CloseKey(HKEY key);
  LSTATUS QueryValue(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type,
                     LPBYTE data, LPDWORD bytes);
  void TellDebugger(LPCWSTR line) { m_lines.emplace_back(line); }
  BOOL OpenPrinter(LPWSTR name, LPHANDLE printer, LPPRINTER_DEFAULTSW defaults);
  BOOL ClosePrinter(HANDLE printer);
  BOOL GetModule(DWORD flags, LPCWSTR name, HMODULE* module);
  BOOL DropLibrary(HMODULE module);

  // Gives a library back, perhaps this one itself.
  void DropModule(HMODULE module);

  // The mask that the registry has for the server's logger.
  void SetMask(uint32_t mask) { m_mask = mask; }
  // What went to the debugger since ForgetLines().
  [[nodiscard]] const std::vector<std::wstring>& Lines() const {
    return m_lines;
  }
  void ForgetLines() { m_lines.clear(); }

  [[nodiscard]] size_t OpenKeys() const { return m_keys.size(); }
  [[nodiscard]] size_t OpenPrinters() const { return m_printers.size(); }
  // References of the library to itself.
  [[nodiscard]] size_t ModuleReferences() const { return m_references; }
  void Reset() { *this = {}; }

 private:
  uint32_t m_mask = kUsualMask;
  std::vector<std::wstring> m_lines;
  std::set<uintptr_t> m_keys;
  std::set<uintptr_t> m_printers;
  uintptr_t m_next = kFirstNumber;
  size_t m_references = 0;
};

[[nodiscard]] std::span<const Thunk> SystemThunks();

}  // namespace kova::test
