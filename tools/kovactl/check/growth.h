// Whether something that grew from request to request counts as a leak.
#pragma once

#include <algorithm>
#include <cstdint>

namespace kova::ctl::check {

// How much growth is more than chance.
struct GrowthLimit {
  int64_t fewest;       // over any number of requests
  int64_t perThousand;  // over a thousand
};

constexpr bool IsSuspicious(int64_t growth, uint32_t requests,
                            const GrowthLimit& limit) {
  return growth >=
         std::max(limit.fewest, limit.perThousand * int64_t{requests} / 1000);
}

// Whether the growth went on, over twice the same number of requests. What is
// filled once, such as a cache, stops growing.
constexpr bool IsLeak(int64_t first, int64_t second, uint32_t requests,
                      const GrowthLimit& limit) {
  return IsSuspicious(first, requests, limit) &&
         IsSuspicious(second, requests, limit) && second > first / 2;
}

}  // namespace kova::ctl::check
