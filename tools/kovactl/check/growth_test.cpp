// Unit: what growth counts as a leak.
#include "check/growth.h"

#include <gtest/gtest.h>

namespace kova::ctl::check {
namespace {

constexpr int64_t kKilobyte = 1024;
// The heap's own rounding up, and 16 bytes a request.
constexpr GrowthLimit kBytes = {32 * kKilobyte, 16000};

TEST(GrowthTest, SuspectsMoreThanRounding) {
  EXPECT_FALSE(IsSuspicious(0, 1000, kBytes));
  EXPECT_FALSE(IsSuspicious(32 * kKilobyte - 1, 1000, kBytes));
  EXPECT_TRUE(IsSuspicious(32 * kKilobyte, 1000, kBytes));
  EXPECT_FALSE(IsSuspicious(int64_t{16} * 100000 - 1, 100000, kBytes));
  EXPECT_TRUE(IsSuspicious(int64_t{16} * 100000, 100000, kBytes));
  EXPECT_FALSE(IsSuspicious(-1, 1000, kBytes));
}

TEST(GrowthTest, CallsOnlyALastingGrowthALeak) {
  EXPECT_TRUE(IsLeak(64 * kKilobyte, 64 * kKilobyte, 1000, kBytes));
  EXPECT_FALSE(IsLeak(64 * kKilobyte, 0, 1000, kBytes));
  EXPECT_FALSE(IsLeak(0, 64 * kKilobyte, 1000, kBytes));
  EXPECT_FALSE(IsLeak(100 * kKilobyte, 50 * kKilobyte, 1000, kBytes));
  EXPECT_TRUE(IsLeak(100 * kKilobyte, 50 * kKilobyte + 1, 1000, kBytes));
}

}  // namespace
}  // namespace kova::ctl::check
