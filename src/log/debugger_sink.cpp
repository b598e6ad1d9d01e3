#include "log/sinks.h"

namespace kova {
namespace {

void ShowToDebugger(tk::Logger* logger, tk::LogChannel channel,
                    const std::wstring& line) {
  if (!tk::IsAlwaysLogged(channel) &&
      (logger->RefreshMask() & tk::kDebuggerShowsAll) == 0) {
    return;
  }
  ::OutputDebugStringW(line.c_str());
}

}  // namespace

tk::LogSink MakeDebuggerSink(tk::Logger* /*logger*/) { return &ShowToDebugger; }

}  // namespace kova
