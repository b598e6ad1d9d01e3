// What this computer is called.
#pragma once

#include <string>

namespace kova {

// The name as GetComputerNameW gives it at this moment; empty where the system
// refuses. May be called from any thread.
[[nodiscard]] std::wstring ComputerName();

}  // namespace kova
