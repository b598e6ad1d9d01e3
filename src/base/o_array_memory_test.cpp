// Patched: the byte array when memory runs out.
#include <gtest/gtest.h>

#include "base/o_array.h"
#include "test/support/watched_heap.h"

namespace {

using kova::test::WatchedHeap;

class OArrayMemoryTest : public testing::Test {
 private:
  const WatchedHeap m_heap;
};

TEST_F(OArrayMemoryTest, AFailedFirstAllocationLeavesTheArrayEmpty) {
  OTypedArray<char> bytes;
  WatchedHeap::RefuseAbove(99);
  bytes.SetSize(100);
  EXPECT_EQ(bytes.Data(), nullptr);
  EXPECT_EQ(bytes.Count(), 0);
  EXPECT_EQ(bytes.Capacity(), 0);
}

TEST_F(OArrayMemoryTest, AFailedGrowthChangesNothing) {
  OTypedArray<char> bytes;
  bytes.SetSize(100);
  bytes[99] = 'x';
  const char* const before = bytes.Data();
  WatchedHeap::RefuseAbove(199);
  bytes.SetSize(200);
  EXPECT_EQ(bytes.Data(), before);
  EXPECT_EQ(bytes.Count(), 100);
  EXPECT_EQ(bytes.Capacity(), 100);
  EXPECT_EQ(bytes[99], 'x');
}

TEST_F(OArrayMemoryTest, TakesTheExactBlockWhereALargerOneIsRefused) {
  OTypedArray<char> bytes;
  bytes.SetSize(100);
  WatchedHeap::RefuseAbove(112);
  bytes.SetSize(101);
  EXPECT_EQ(bytes.Count(), 101);
  EXPECT_EQ(bytes.Capacity(), 112);
  bytes.SetSize(113);
  EXPECT_EQ(bytes.Count(), 101);
}

}  // namespace
