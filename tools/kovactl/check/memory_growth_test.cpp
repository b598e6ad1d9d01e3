// Unit: what growth of memory counts as a leak.
#include "check/memory_growth.h"

#include <gtest/gtest.h>

namespace kova::ctl::check {
namespace {

constexpr int64_t kKilobyte = 1024;

TEST(MemoryGrowthTest, SuspectsMoreThanRounding) {
  EXPECT_FALSE(IsSuspicious(0, 1000));
  EXPECT_FALSE(IsSuspicious(32 * kKilobyte - 1, 1000));
  EXPECT_TRUE(IsSuspicious(32 * kKilobyte, 1000));
  EXPECT_FALSE(IsSuspicious(int64_t{16} * 100000 - 1, 100000));
  EXPECT_TRUE(IsSuspicious(int64_t{16} * 100000, 100000));
  EXPECT_FALSE(IsSuspicious(-1, 1000));
}

TEST(MemoryGrowthTest, CallsOnlyALastingGrowthALeak) {
  EXPECT_TRUE(IsLeak(64 * kKilobyte, 64 * kKilobyte, 1000));
  EXPECT_FALSE(IsLeak(64 * kKilobyte, 0, 1000));
  EXPECT_FALSE(IsLeak(0, 64 * kKilobyte, 1000));
  EXPECT_FALSE(IsLeak(100 * kKilobyte, 50 * kKilobyte, 1000));
  EXPECT_TRUE(IsLeak(100 * kKilobyte, 50 * kKilobyte + 1, 1000));
}

}  // namespace
}  // namespace kova::ctl::check
