// Whether memory that grew counts as a leak.
#pragma once

#include <algorithm>
#include <cstdint>

namespace kova::ctl::check {

// `growthBytes` over `requests`: more than the heap's own rounding up, and
// enough for each request to have left something behind.
constexpr bool IsSuspicious(int64_t growthBytes, uint32_t requests) {
  constexpr int64_t kFewestBytes = 0x8000;
  constexpr int64_t kFewestBytesPerRequest = 16;
  return growthBytes >=
         std::max(kFewestBytes, kFewestBytesPerRequest * int64_t{requests});
}

// Whether the growth went on, over twice the same number of requests. What is
// filled once, such as a cache, stops growing.
constexpr bool IsLeak(int64_t firstBytes, int64_t secondBytes,
                      uint32_t requests) {
  return IsSuspicious(firstBytes, requests) &&
         IsSuspicious(secondBytes, requests) && secondBytes > firstBytes / 2;
}

}  // namespace kova::ctl::check
