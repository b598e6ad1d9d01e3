// Patched: a block of bytes when memory runs out.
#include <gtest/gtest.h>

#include <cstddef>

#include "base/byte_buffer.h"
#include "test/support/watched_heap.h"

namespace {

using kova::ByteBuffer;
using kova::test::WatchedHeap;

class ByteBufferMemoryTest : public testing::Test {
 protected:
  const WatchedHeap m_heap;
};

TEST_F(ByteBufferMemoryTest, ARefusedClaimKeepsTheOldBlock) {
  ByteBuffer buffer;
  ASSERT_TRUE(buffer.TryResizeDiscarding(2));
  buffer.Data()[0] = 'x';
  const char* const before = buffer.Data();
  WatchedHeap::RefuseAbove(99);
  EXPECT_FALSE(buffer.TryResizeDiscarding(100));
  EXPECT_EQ(buffer.Data(), before);
  EXPECT_EQ(buffer.Size(), 2u);
  EXPECT_EQ(buffer.Data()[0], 'x');
  EXPECT_TRUE(buffer.TryResizeDiscarding(0));
}

// Very large blocks come zero from the system and are not touched here: a claim
// of gigabytes costs what it takes to look for them.
TEST_F(ByteBufferMemoryTest, AsksTheRuntimeForZerosWhateverTheSize) {
  size_t asked = 0;
  for (const uint64_t size :
       {uint64_t{1}, uint64_t{4} << 20, uint64_t{1} << 30}) {
    kova::FreeKeptBlocks();
    ByteBuffer buffer;
    EXPECT_TRUE(buffer.TryResizeDiscarding(size));
    EXPECT_EQ(m_heap.ZeroedCalls(), ++asked) << size;
    EXPECT_EQ(buffer.Data()[size - 1], 0);
  }
}

// All others are cleared where they are.
TEST_F(ByteBufferMemoryTest, TakesVeryLargeBlocksAnewWhereTheSizeIsTheSame) {
  for (const uint64_t size : {uint64_t{1}, uint64_t{kova::kMostKeptBytes}}) {
    ByteBuffer buffer;
    ASSERT_TRUE(buffer.TryResizeDiscarding(size));
    const size_t asked = m_heap.ZeroedCalls();
    const char* const before = buffer.Data();
    EXPECT_TRUE(buffer.TryResizeDiscarding(size));
    EXPECT_EQ(buffer.Data(), before);
    EXPECT_EQ(m_heap.ZeroedCalls(), asked);
  }
  ByteBuffer buffer;
  ASSERT_TRUE(buffer.TryResizeDiscarding(kova::kMostKeptBytes + 1));
  const size_t asked = m_heap.ZeroedCalls();
  EXPECT_TRUE(buffer.TryResizeDiscarding(kova::kMostKeptBytes + 1));
  EXPECT_EQ(m_heap.ZeroedCalls(), asked + 1);
}

TEST_F(ByteBufferMemoryTest, GivesItsLargeBlockToTheNext) {
  kova::FreeKeptBlocks();
  const int64_t live = m_heap.LiveBlocks();
  for (int i = 0; i < 3; ++i) {
    ByteBuffer buffer;
    ASSERT_TRUE(buffer.TryResizeDiscarding(uint64_t{8} << 20));
    ASSERT_EQ(buffer.Data()[0], 0);
    buffer.Data()[0] = 'x';
  }
  EXPECT_EQ(m_heap.ZeroedCalls(), 1u);
  kova::FreeKeptBlocks();
  EXPECT_EQ(m_heap.LiveBlocks(), live);
}

}  // namespace
