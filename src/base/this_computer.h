// What this computer says of itself: the time on its clock, and its name.
#pragma once

#include <cstdint>
#include <string>

namespace kova {

// Whole seconds since 1970-01-01 00:00:00 UTC. Asks the system, not the C
// runtime, whose time() may look up the time zone first, as Wine's does. For
// any thread.
[[nodiscard]] int64_t CurrentTimeSeconds();

// The name as GetComputerNameW gives it at this moment; empty where the system
// refuses. For any thread.
[[nodiscard]] std::wstring ComputerName();

}  // namespace kova
