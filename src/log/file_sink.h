// The sink that leaves a logger's lines in a text file.
#pragma once

#include <string>

#include "log/logger.h"

namespace kova {

// The file of the logger called `loggerName`: "C:\Log Files\NAME.txt".
[[nodiscard]] std::wstring LogFilePath(const std::wstring& loggerName);

// Makes the folder "C:\Log Files" unless it exists. A failure is ignored.
void MakeSureOfLogFolder();

// The sink is on while the logger's mask has tk::kFileSinkOn. It gathers every
// line it is given, with the local time in front, and writes what it has
// gathered only when "C:\Log Files\<logger name>.txt" does not exist: an
// administrator deletes the file to have a fresh one. Threads may log at once;
// their lines are gathered whole, one after the other.
tk::LogSink MakeFileSink(tk::Logger* logger);

}  // namespace kova
