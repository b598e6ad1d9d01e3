#include "common/output.h"

#include <string>

#include "common/utf8.h"

namespace kova::ctl {
namespace {

constexpr DWORD kVirtualTerminal = 0x0004;

bool HasConsole(HANDLE handle) {
  DWORD mode = 0;
  return ::GetConsoleMode(handle, &mode) != FALSE;
}

// A pipe may take a text in pieces.
void WriteBytes(HANDLE handle, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    if (!::WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()),
                     &written, nullptr) ||
        written == 0) {
      return;
    }
    bytes.remove_prefix(written);
  }
}

}  // namespace

Output::Output(DWORD standardHandle)
    : m_handle(::GetStdHandle(standardHandle)),
      m_isConsole(HasConsole(m_handle)) {}

void Output::Write(std::wstring_view text) const {
  if (m_isConsole) {
    DWORD written = 0;
    ::WriteConsoleW(m_handle, text.data(), static_cast<DWORD>(text.size()),
                    &written, nullptr);
  } else {
    WriteBytes(m_handle, ToUtf8(text));
  }
}

bool Output::TakesColor(ColorMode mode) const {
  if (mode == ColorMode::kNever) return false;
  DWORD consoleMode = 0;
  const bool understands =
      m_isConsole && ::GetConsoleMode(m_handle, &consoleMode) &&
      ::SetConsoleMode(m_handle, consoleMode | kVirtualTerminal);
  return understands || mode == ColorMode::kAlways;
}

void WriteError(std::wstring_view text) {
  Output(STD_ERROR_HANDLE)
      .Write(L"kovactl: error: " + std::wstring(text) + L"\n");
}

}  // namespace kova::ctl
