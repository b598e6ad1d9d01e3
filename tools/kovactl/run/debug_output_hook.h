// Listens to what a loaded library sends to the debugger.
#pragma once

#include "base/windows_api.h"
#include "run/import_replacement.h"
#include "run/line_pump.h"

namespace kova::ctl {

// From construction to destruction, the OutputDebugStringW calls of `module`
// are pushed to `sink`, and passed on. There may be one hook at a time.
//
// The module's import is replaced, rather than the system's shared debugger
// buffer read: that buffer is one for the whole session, so a second reader
// (another run of this tool, a log viewer) would take lines away; it converts
// them to the ANSI code page and cuts them at 4 KiB; and each line of a process
// without a reader of its own thread costs a hand-over between processes. The
// import table works the same on Windows and under Wine.
class DebugOutputHook {
 public:
  DebugOutputHook(HMODULE module, LineSink& sink);
  // The module's threads must be gone, or its import goes back to the system
  // while a call may still be on its way into `sink`.
  ~DebugOutputHook();

  DebugOutputHook(const DebugOutputHook&) = delete;
  DebugOutputHook& operator=(const DebugOutputHook&) = delete;

  // False if the module has no such import: its lines stay unseen.
  [[nodiscard]] bool IsInstalled() const { return m_replacement.IsInstalled(); }

 private:
  const ImportReplacement m_replacement;
};

}  // namespace kova::ctl
