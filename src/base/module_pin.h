// Keeps this DLL loaded while a thread of its own still runs its code.
#pragma once

#include "base/windows_api.h"

namespace kova {

// Adds one reference to the module that this code lies in and returns its
// handle, or null if the system refuses, or the C runtime adds one itself for
// each thread (the universal one does, msvcrt does not). A thread that may
// outlive the last wait for it gets a reference from whoever starts it and
// gives it back with EndThread, so that a host may unload the module at any
// moment. Takes the loader lock.
[[nodiscard]] HMODULE PinThisModule();

// Ends the calling thread with `exitCode` and drops `pin` (may be null) in one
// system call that needs no return into the module: FreeLibraryAndExitThread
// exists for this. Nothing with a destructor may live on the caller's stack.
[[noreturn]] void EndThread(HMODULE pin, DWORD exitCode);

}  // namespace kova
