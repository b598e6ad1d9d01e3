// The growth rule of the arrays, apart from the arrays themselves.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace kova {

inline constexpr int32_t kLeastGrowthStep = 4;
inline constexpr int32_t kMostGrowthStep = 1024;

// The capacity that an array of `count` elements in use and `capacity`
// reserved reports after growing to `newSize` (more than `capacity`). The step
// is `growBy`; 0 means an eighth of `count`, within the limits above.
[[nodiscard]] constexpr int32_t NextCapacity(int32_t count, int32_t capacity,
                                             int32_t growBy, int32_t newSize) {
  const int32_t step =
      growBy != 0 ? growBy
                  : std::clamp(count / 8, kLeastGrowthStep, kMostGrowthStep);
  const int64_t next = std::max<int64_t>(newSize, int64_t{capacity} + step);
  return static_cast<int32_t>(
      std::min<int64_t>(next, std::numeric_limits<int32_t>::max()));
}

// How many elements the block beneath gets when `needed` no longer fit into
// its `room`: at least half as much again, so that n elements added in small
// steps are moved O(n) times in all, and what lies idle is less than half of
// what is used.
[[nodiscard]] constexpr size_t NextRoom(size_t room, size_t needed) {
  return std::max(needed, room + room / 2);
}

}  // namespace kova
