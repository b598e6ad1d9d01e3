// Standard output and standard error, on a console as in a pipe.
#pragma once

#include <string_view>

#include "base/windows_api.h"

namespace kova::ctl {

enum class ColorMode { kAuto, kAlways, kNever };

// Writes whole texts: UTF-16 on a console, UTF-8 into a pipe or file, so that
// no code page can spoil a name. A reader that went away is ignored. Several
// threads may write at once; their texts do not mix.
class Output {
 public:
  // standardHandle: STD_OUTPUT_HANDLE or STD_ERROR_HANDLE.
  explicit Output(DWORD standardHandle);

  void Write(std::wstring_view text) const;

  // Whether texts may carry colour sequences. kAuto means: on a console that
  // can be made to understand them. Switches the console over if needed.
  [[nodiscard]] bool TakesColor(ColorMode mode) const;

  // Whether somebody reads the texts as they come.
  [[nodiscard]] bool IsConsole() const { return m_isConsole; }

 private:
  const HANDLE m_handle;  // weak
  const bool m_isConsole;
};

// The one line a failed command writes: "kovactl: error: " and the text, to
// standard error.
void WriteError(std::wstring_view text);

}  // namespace kova::ctl
