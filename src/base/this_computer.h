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

// The name that the last ComputerName() got; asks where that got none. Windows
// takes the name for as long as it runs when it starts ("Computer Names" in its
// documentation), and tells it by three calls of the registry. For any thread.
[[nodiscard]] std::wstring KnownComputerName();

}  // namespace kova
