// Where a logger's lines go: the event log, a file, a debugger. Each factory
// makes the sink of one logger; sinks may be called by several threads at once.
#pragma once

#include <cstdint>
#include <string>

#include "base/windows_api.h"
#include "log/logger.h"

namespace kova {

// Reports lines to the Windows event log. Registers the logger's event source,
// which stays registered for good. Where no source can be had, the sink does
// nothing. Reports of one logger are serialised by its lock.
tk::LogSink MakeEventLogSink(tk::Logger* logger);

// How a line is filed: one of the EVENTLOG_..._TYPE values and the identifier
// of its text in the message library.
struct EventClass {
  WORD type = 0;
  DWORD id = 0;

  bool operator==(const EventClass&) const = default;
};

// The class of a line on `channel` in the event log of that kind. Bits decide:
// a combination that contains Error is an error.
EventClass ClassifyEvent(uint32_t eventLogKind, tk::LogChannel channel);

// The file of the logger called `loggerName`: "C:\Log Files\NAME.txt".
[[nodiscard]] std::wstring LogFilePath(const std::wstring& loggerName);

// Makes the folder "C:\Log Files" unless it exists. A failure is ignored.
void MakeSureOfLogFolder();

// Leaves lines in the logger's file, while its mask has tk::kFileSinkOn.
// Gathers every line it is given, with the local time in front, and writes what
// it has gathered only when the file does not exist: an administrator deletes
// the file to have a fresh one. Threads may log at once; their lines are
// gathered whole, one after the other.
tk::LogSink MakeFileSink(tk::Logger* logger);

// Shows lines to a debugger, without a line end: errors and warnings always,
// other channels only while the logger's mask has tk::kDebuggerShowsAll.
tk::LogSink MakeDebuggerSink(tk::Logger* logger);

}  // namespace kova
