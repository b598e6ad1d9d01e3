// The time of the system's clock.
#pragma once

#include <cstdint>

namespace kova {

// Whole seconds since 1970-01-01 00:00:00 UTC. Asks the system, not the C
// runtime, whose time() may look up the time zone first, as Wine's does. For
// any thread.
[[nodiscard]] int64_t CurrentTimeSeconds();

}  // namespace kova
