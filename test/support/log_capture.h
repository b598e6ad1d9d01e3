// Sees what a module logs, and sets what it may log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

namespace kova::test {

inline constexpr wchar_t kServerLoggerName[] = L"Corvane KOVA Server";

// From construction to destruction, gathers every line that `module` (null:
// this program) writes to the debugger, on any thread, in order; the debugger
// itself sees none of them. The module must import OutputDebugStringW. Log
// lines arrive as the debugger sink gets them: channel, blank, method, ": ",
// text. Info and detail lines arrive only if the logger's mask has their bit
// and kDebuggerShowsAll (see ScopedLogMask). At most one capture may live at a
// time.
class LogCapture {
 public:
  explicit LogCapture(HMODULE module = nullptr);
  ~LogCapture();

  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // All lines so far.
  [[nodiscard]] std::vector<std::wstring> Lines() const;
  // All lines so far, which are forgotten.
  std::vector<std::wstring> Take();
  // Waits until a line that equals `line` has come; false after `timeoutMs`.
  [[nodiscard]] bool WaitFor(const std::wstring& line, DWORD timeoutMs) const;

 private:
  const ImportPatch<decltype(::OutputDebugStringW)> m_patch;
};

// Writes, reads or deletes the registry value that is the mask of the logger
// of that name. A living logger sees the change at its next refresh, more than
// 5000 ms after its last one: move its clock with FakeTickCount.
void SetLogMask(uint32_t mask, const wchar_t* loggerName = kServerLoggerName);
bool GetLogMask(uint32_t& mask, const wchar_t* loggerName = kServerLoggerName);
void DeleteLogMask(const wchar_t* loggerName = kServerLoggerName);

// Sets a logger's mask for its scope, then puts the former value back or
// deletes it if there was none.
class ScopedLogMask {
 public:
  explicit ScopedLogMask(uint32_t mask,
                         const wchar_t* loggerName = kServerLoggerName);
  ~ScopedLogMask();

  ScopedLogMask(const ScopedLogMask&) = delete;
  ScopedLogMask& operator=(const ScopedLogMask&) = delete;

 private:
  const std::wstring m_loggerName;
  uint32_t m_former = 0;
  const bool m_existed;
};

}  // namespace kova::test
