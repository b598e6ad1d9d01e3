// Whether memory that grew counts as a leak.
#pragma once

#include <cstdint>

namespace kova::ctl::check {

// `growthBytes` over `requests`: more than the heap's own rounding up, and
// enough for each request to have left something behind.
bool IsSuspicious(int64_t growthBytes, uint32_t requests);

// Whether the growth went on, over twice the same number of requests. What is
// filled once, such as a cache, stops growing.
bool IsLeak(int64_t firstBytes, int64_t secondBytes, uint32_t requests);

}  // namespace kova::ctl::check
