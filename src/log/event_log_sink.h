// The sink that reports lines to the Windows event log.
#pragma once

#include <cstdint>

#include "base/windows_api.h"
#include "log/logger.h"

namespace kova {

// Registers the logger's event source, which stays registered for good. Where
// no source can be had, the sink does nothing. Reports of one logger are
// serialised by its lock.
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

}  // namespace kova
