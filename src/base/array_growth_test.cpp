// Unit: the growth rule of the arrays.
#include "base/array_growth.h"

#include <gtest/gtest.h>

namespace kova {
namespace {

TEST(NextCapacityTest, AddsAnEighthOfTheCountWithinLimits) {
  EXPECT_EQ(NextCapacity(1, 1, 0, 2), 5);
  EXPECT_EQ(NextCapacity(39, 39, 0, 40), 43);
  EXPECT_EQ(NextCapacity(40, 40, 0, 41), 45);
  EXPECT_EQ(NextCapacity(800, 800, 0, 801), 900);
  EXPECT_EQ(NextCapacity(8184, 8184, 0, 8185), 8184 + 1023);
  EXPECT_EQ(NextCapacity(8192, 8192, 0, 8193), 8192 + 1024);
  EXPECT_EQ(NextCapacity(16000, 16000, 0, 16001), 17024);
}

TEST(NextCapacityTest, TakesTheStepThatWasSet) {
  EXPECT_EQ(NextCapacity(800, 800, 1, 801), 801);
  EXPECT_EQ(NextCapacity(800, 800, 7, 801), 807);
  EXPECT_EQ(NextCapacity(800, 800, -3, 801), 801);
}

TEST(NextCapacityTest, GivesWhatIsAskedWhereThatIsMore) {
  EXPECT_EQ(NextCapacity(1, 1, 0, 100), 100);
  EXPECT_EQ(NextCapacity(0, 5, 0, 9), 9);
  EXPECT_EQ(NextCapacity(0, 5, 0, 10), 10);
}

TEST(NextCapacityTest, DoesNotOverflow) {
  EXPECT_EQ(NextCapacity(INT32_MAX - 1, INT32_MAX - 1, 0, INT32_MAX),
            INT32_MAX);
  EXPECT_EQ(NextCapacity(10, 10, INT32_MAX, 11), INT32_MAX);
}

TEST(NextRoomTest, IsAtLeastHalfAsMuchAgain) {
  EXPECT_EQ(NextRoom(0, 5), 5u);
  EXPECT_EQ(NextRoom(1, 2), 2u);
  EXPECT_EQ(NextRoom(6, 7), 9u);
  EXPECT_EQ(NextRoom(6, 9), 9u);
  EXPECT_EQ(NextRoom(6, 10), 10u);
}

}  // namespace
}  // namespace kova
