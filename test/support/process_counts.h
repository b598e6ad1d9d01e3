// What this process holds at the moment.
#pragma once

#include <cstddef>

namespace kova::test {

// The number of its threads, from a snapshot of the system.
[[nodiscard]] size_t CountThreads();

// The number of its handles, from the system's handle table: the function that
// counts them, GetProcessHandleCount, is a stub under Wine.
[[nodiscard]] size_t CountHandles();

}  // namespace kova::test
