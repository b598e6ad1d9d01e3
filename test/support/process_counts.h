// What a process holds at the moment.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/windows_api.h"

namespace kova::test {

// The id of a process that runs the program `imageName` ("host.exe", in any
// case); 0 if there is none.
[[nodiscard]] DWORD FindProcess(const wchar_t* imageName);

// The number of its threads, from a snapshot of the system.
[[nodiscard]] size_t CountThreads(DWORD processId = ::GetCurrentProcessId());

// Waits at most `patienceMs` until this process has no more than `most`
// threads; false if it still has.
[[nodiscard]] bool WaitForThreads(size_t most, DWORD patienceMs);

// The number of its handles, from the system's handle table: the function that
// counts them, GetProcessHandleCount, is a stub under Wine.
[[nodiscard]] size_t CountHandles(DWORD processId = ::GetCurrentProcessId());

// The private memory that this process has committed, in bytes, found region by
// region: the system's own count, PrivateUsage, may be 0 under Wine.
[[nodiscard]] uint64_t CountPrivateBytes();

}  // namespace kova::test
