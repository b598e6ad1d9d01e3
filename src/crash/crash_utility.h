// What happens when an exception escapes the server's code.
#pragma once

#include <cstdint>
#include <string>

#include "base/windows_api.h"

namespace CrashUtility {

// The name of the mutex that admits one dump writer of a process at a time.
[[nodiscard]] std::wstring DumpMutexName(uint32_t processId);

// Makes the dump mutex of this process, if there is none yet; for the
// process-attach notification. Without it no dump is written.
void CreateDumpMutex();

// Closes the dump mutex; for the process-detach notification.
void CloseDumpMutex();

// The filter of the guard around the exports and the server's threads. Writes
// a minidump, unless another thread is doing so or tried within the last
// 60000 ms, and logs what it did. Runs on the faulting thread. Always returns
// 0 (EXCEPTION_CONTINUE_SEARCH): the exception goes on. Keeps the thread's
// last error. `pointers` may be null.
int32_t RecordSEH(EXCEPTION_POINTERS* pointers);

}  // namespace CrashUtility
