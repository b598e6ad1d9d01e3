// Calls into an extension: seen from the other process while they run, and
// recorded when an exception leaves them.
#pragma once

#include "check/board.h"

namespace kova::ctl::check {

// Calls body(argument). An exception of any kind that leaves it is written to
// the board as one of `entry`, and the process ends at once, without running
// any more of the extension's code.
void CallRecorded(Board& board, Entry entry, void (*body)(void*),
                  void* argument);

// Records what no CallRecorded sees, and keeps message boxes from showing: the
// exceptions of threads that the extension started, and those while the
// process ends. Once, early; the board must stay.
void RecordUnhandled(Board& board);

// Runs `body` in the extension's entry `entry`, on the thread of that slot.
template <typename Body>
void CallEntry(Board& board, size_t slot, Entry entry, Body body) {
  Slot& mine = board.slots[slot];
  mine.sinceMs = ::GetTickCount64();
  mine.entry = entry;
  CallRecorded(
      board, entry, [](void* argument) { (*static_cast<Body*>(argument))(); },
      &body);
  mine.entry = Entry::kNone;
}

}  // namespace kova::ctl::check
