// Runs what may itself crash while a crash is being recorded.
#pragma once

namespace kova {

// What runs in a structured-exception block. `argument` is handed through
// unchanged.
using GuardedBody = unsigned (*)(void* argument);

// Calls body(argument) and returns its result. A fault in an instruction that
// stands in a structured-exception block itself may not reach the block's
// filter, because the compiler models calls only; hence this call, which is
// not inlined.
unsigned CallApart(GuardedBody body, void* argument);

// Calls body(argument). A machine fault that escapes the body, or what another
// C++ runtime throws, ends it there and is forgotten; destructors that are due
// in between do not run, so this is for a process that is crashing already and
// for nothing else. What this C++ runtime throws passes: the body catches it.
void RunContained(GuardedBody body, void* argument);

}  // namespace kova
