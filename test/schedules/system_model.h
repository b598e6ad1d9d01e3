// The registry, the spooler, the log's sinks and libraries, as a model.
#pragma once

#include <cstdint>
#include <functional>
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
  using Complain = std::function<void(const std::string&)>;
  static constexpr uint32_t kUsualMask = 0xE0000000;

  explicit SystemModel(Complain complain);

  // The mask that the registry has for the server's logger.
  void SetMask(uint32_t mask) { m_mask = mask; }
  [[nodiscard]] uint32_t Mask() const { return m_mask; }
  // What went to the debugger since ForgetLines().
  [[nodiscard]] const std::vector<std::wstring>& Lines() const {
    return m_lines;
  }
  void ForgetLines() { m_lines.clear(); }
  void AddLine(const wchar_t* line) { m_lines.emplace_back(line); }

  LSTATUS OpenKey(PHKEY key);
  LSTATUS CloseKey(HKEY key);
  HANDLE OpenPrinter();
  BOOL ClosePrinter(HANDLE printer);

  // References of the library to itself.
  void PinModule();
  void DropModule(HMODULE module);

  [[nodiscard]] int OpenKeys() const { return static_cast<int>(m_keys.size()); }
  [[nodiscard]] int OpenPrinters() const {
    return static_cast<int>(m_printers.size());
  }
  [[nodiscard]] int ModuleReferences() const { return m_references; }
  void Reset();

 private:
  const Complain m_complain;
  uint32_t m_mask = kUsualMask;
  std::vector<std::wstring> m_lines;
  std::set<uintptr_t> m_keys;
  std::set<uintptr_t> m_printers;
  uintptr_t m_next = 0;
  int m_references = 0;
};

[[nodiscard]] std::span<const Thunk> SystemThunks();

}  // namespace kova::test
