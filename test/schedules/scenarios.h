// What is tried under all schedules.
#pragma once

#include <span>

#include "test/schedules/scheduled_server.h"

namespace kova::test {

[[nodiscard]] std::span<const Scenario> Scenarios();

}  // namespace kova::test
