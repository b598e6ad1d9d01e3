// Registration of event sources, so that the event viewer finds their texts.
#pragma once

#include <cstdint>
#include <string>

#include "base/windows_api.h"

namespace tk {

// Makes sure that the "Application" event log has a source of that name. A new
// source gets its message files, types and categories, and a source of the
// same name under the "System" log is deleted; an existing one is left alone.
// False if `sourceName` is null or its key can be neither created nor opened.
// Keeps the thread's last error.
bool PrepareEventSource(const wchar_t* sourceName);

}  // namespace tk

namespace kova {

// The kind of event log that sources are registered in.
inline constexpr uint32_t kApplicationLog = 0;

// The source that the server registers beside those of its loggers.
inline constexpr wchar_t kDispatcherSource[] = L"DispatcherUtil";

// The value that names the library with a source's texts.
inline constexpr wchar_t kMessageFileValue[] = L"EventMessageFile";

// Below HKEY_LOCAL_MACHINE, the key of the source `sourceName` in the event
// log of that kind: 0 is "Application", 1 is "System". Any other kind is taken
// as "Application".
std::wstring EventSourceKeyPath(uint32_t eventLogKind,
                                const std::wstring& sourceName);

// Writes the four values that describe a source: "EventMessageFile",
// "TypesSupported", "CategoryMessageFile" and "CategoryCount". `key` must be
// open for writing and stays the caller's.
void WriteEventSourceValues(HKEY key);

}  // namespace kova
