#include "check/memory_growth.h"

#include <algorithm>

namespace kova::ctl::check {
namespace {

constexpr int64_t kFewestBytes = 0x8000;
constexpr int64_t kFewestBytesPerRequest = 16;

}  // namespace

bool IsSuspicious(int64_t growthBytes, uint32_t requests) {
  return growthBytes >=
         std::max(kFewestBytes, kFewestBytesPerRequest * int64_t{requests});
}

bool IsLeak(int64_t firstBytes, int64_t secondBytes, uint32_t requests) {
  return IsSuspicious(firstBytes, requests) &&
         IsSuspicious(secondBytes, requests) && secondBytes > firstBytes / 2;
}

}  // namespace kova::ctl::check
