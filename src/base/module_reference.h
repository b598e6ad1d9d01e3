// A reference to this DLL, held by a thread that still runs its code.
#pragma once

#include "base/windows_api.h"

namespace kova {

// Adds one reference to the module that this code lies in and returns its
// handle, or null if the system refuses, or if the C runtime adds one itself
// for each thread (the universal one does, msvcrt does not). A thread that may
// outlive the last wait for it gets a reference from whoever starts it and
// gives it back with EndThread, so that a host may unload the module at any
// moment. Takes the loader lock.
[[nodiscard]] HMODULE AddModuleReference();

// Ends the calling thread with `exitCode` and drops `reference` (may be null)
// in one system call that never returns into the module, which may be gone by
// then. Nothing with a destructor may live on the caller's stack.
[[noreturn]] void EndThread(HMODULE reference, DWORD exitCode);

}  // namespace kova
