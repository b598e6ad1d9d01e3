// The structured-exception guard that the exports and the server's threads
// run in.
#pragma once

namespace kova {

// What runs in the guard. `argument` is handed through unchanged.
using GuardedBody = unsigned (*)(void* argument);

// Calls body(argument) and returns its result. An exception of any kind that
// escapes the body, a machine fault or a thrown C++ exception, is shown to
// CrashUtility::RecordSEH on the faulting thread, before any unwinding, and
// then goes on to whoever else may handle it: the guard catches nothing. Raises
// the calling thread's stack guarantee for good, so that a stack overflow can
// be recorded, too. May be called on any thread; holds no lock.
unsigned RunGuarded(GuardedBody body, void* argument);

}  // namespace kova
