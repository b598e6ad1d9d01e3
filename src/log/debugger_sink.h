// The sink that shows lines to a debugger.
#pragma once

#include "log/logger.h"

namespace kova {

// Errors and warnings are always shown; other channels only while the logger's
// mask has tk::kDebuggerShowsAll. No line end is added.
tk::LogSink MakeDebuggerSink(tk::Logger* logger);

}  // namespace kova
