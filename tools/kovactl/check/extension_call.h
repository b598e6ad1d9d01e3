// Calls into an extension: seen from the other process while they run, and
// recorded when an exception leaves them.
#pragma once

#include <string>

#include "check/worker_state.h"

namespace kova::ctl::check {

// Calls body(argument). An exception of any kind that leaves it is written to
// `state` as one of `callee`, and the process ends at once, without running any
// more of the extension's code.
void CallRecorded(WorkerState& state, Callee callee, void (*body)(void*),
                  void* argument);

// Records what no CallRecorded sees, and keeps message boxes from showing: the
// exceptions of threads that the extension started, and those while the
// process ends. Once, early; `state` must stay.
void RecordUnhandled(WorkerState& state);

// Which of the extension's functions the calling thread is in; kNone for a
// thread that no CallExtension runs on. May be called in an exception handler.
Callee CalleeOfThisThread();

// The module that holds the code at `address`, and how far into it. `module` is
// empty, and `offset` the address, if none does. Takes no memory from the heap.
struct CodePlace {
  wchar_t module[64];  // the file's name, cut off if it is longer
  uint64_t offset;
};
CodePlace PlaceOf(const void* address);

// "Corvane_V3_NetMon.dll+0x12F3", or "address 0x...".
std::string PlaceText(const wchar_t* module, uint64_t offset);

// Runs `body`, which calls `callee`, on the thread of that number.
template <typename Body>
void CallExtension(WorkerState& state, size_t thread, Callee callee,
                   Body body) {
  CallInProgress& mine = state.calls[thread];
  mine.sinceMs = ::GetTickCount64();
  mine.threadId = ::GetCurrentThreadId();
  mine.callee = callee;
  CallRecorded(
      state, callee, [](void* argument) { (*static_cast<Body*>(argument))(); },
      &body);
  mine.callee = Callee::kNone;
}

}  // namespace kova::ctl::check
