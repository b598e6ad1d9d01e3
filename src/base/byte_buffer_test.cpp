// Unit: a block of bytes of an exact size.
#include "base/byte_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kova {
namespace {

bool IsAll(const ByteBuffer& buffer, char byte) {
  return std::all_of(buffer.Data(), buffer.Data() + buffer.Size(),
                     [byte](char c) { return c == byte; });
}

TEST(ByteBufferTest, BeginsEmpty) {
  const ByteBuffer buffer;
  EXPECT_EQ(buffer.Data(), nullptr);
  EXPECT_EQ(buffer.Size(), 0u);
}

TEST(ByteBufferTest, HasTheSizeItWasGiven) {
  ByteBuffer buffer;
  buffer.ResizeDiscarding(10);
  EXPECT_EQ(buffer.Size(), 10u);
  EXPECT_TRUE(buffer.TryResizeDiscarding(20));
  EXPECT_EQ(buffer.Size(), 20u);
  buffer.ResizeDiscarding(5);
  EXPECT_EQ(buffer.Size(), 5u);
  EXPECT_TRUE(buffer.TryResizeDiscarding(0));
  EXPECT_EQ(buffer.Data(), nullptr);
  buffer.ResizeDiscarding(1);
  buffer.ResizeDiscarding(0);
  EXPECT_EQ(buffer.Data(), nullptr);
}

TEST(ByteBufferTest, KeepsABlockThatHasTheSize) {
  ByteBuffer buffer;
  buffer.ResizeDiscarding(4);
  std::fill_n(buffer.Data(), 4, 'x');
  const char* const before = buffer.Data();
  buffer.ResizeDiscarding(4);
  EXPECT_EQ(buffer.Data(), before);
  EXPECT_TRUE(IsAll(buffer, 'x'));
}

// The heap gives freed blocks again, with what was in them.
TEST(ByteBufferTest, IsZeroWhereSomebodyElseClaimsTheSize) {
  constexpr uint64_t kMiB = uint64_t{1} << 20;
  for (const uint64_t size :
       {uint64_t{1}, uint64_t{4095}, uint64_t{65536}, kMiB - 1, kMiB,
        4 * kMiB - 1, 4 * kMiB, 8 * kMiB}) {
    ByteBuffer dirty;
    dirty.ResizeDiscarding(size);
    std::fill_n(dirty.Data(), size, 'x');
    dirty.ResizeDiscarding(0);
    ByteBuffer buffer;
    ASSERT_TRUE(buffer.TryResizeDiscarding(size));
    EXPECT_TRUE(IsAll(buffer, '\0')) << size;
    // A block of the size that it has already, too.
    std::fill_n(buffer.Data(), size, 'x');
    ASSERT_TRUE(buffer.TryResizeDiscarding(size));
    EXPECT_EQ(buffer.Size(), size);
    EXPECT_TRUE(IsAll(buffer, '\0')) << size;
  }
}

}  // namespace
}  // namespace kova
