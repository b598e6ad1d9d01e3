// Unit: looking at 64 bytes at once.
#include "base/byte_block.h"

#include <gtest/gtest.h>

#include <string>

namespace kova {
namespace {

using Text = std::string;

TEST(ByteBlockTest, TellsThePlaceOfEachByte) {
  for (size_t at = 0; at < ByteBlock::kBytes; ++at) {
    Text text(ByteBlock::kBytes, 'x');
    text[at] = '\n';
    const ByteBlock block(text.data());
    EXPECT_EQ(block.Equal('\n'), uint64_t{1} << at);
    EXPECT_EQ(block.Equal('x'), ~(uint64_t{1} << at));
    EXPECT_TRUE(block.Has('\n')) << at;
  }
}

TEST(ByteBlockTest, HasNoByteThatIsNotThere) {
  const Text text(ByteBlock::kBytes, '\x80');
  const ByteBlock block(text.data());
  EXPECT_FALSE(block.Has('\n'));
  EXPECT_FALSE(block.Has('\0'));
  EXPECT_FALSE(block.HasZero());
  EXPECT_EQ(block.Equal('\0'), 0u);
  EXPECT_EQ(block.Equal('\x80'), ~uint64_t{0});
}

TEST(ByteBlockTest, SeesAZeroAmongAnyBytes) {
  for (const char other : {'\x01', '\x7F', '\x80', '\xFF'}) {
    for (size_t at = 0; at < ByteBlock::kBytes; ++at) {
      Text text(ByteBlock::kBytes, other);
      text[at] = '\0';
      EXPECT_TRUE(ByteBlock(text.data()).HasZero()) << at;
      EXPECT_EQ(ByteBlock(text.data()).Equal('\0'), uint64_t{1} << at);
    }
  }
}

TEST(ByteBlockTest, TakesBytesThatAreNotAligned) {
  Text text(ByteBlock::kBytes + 7, 'x');
  text[7 + 63] = '\n';
  EXPECT_EQ(ByteBlock(text.data() + 7).Equal('\n'), uint64_t{1} << 63);
}

}  // namespace
}  // namespace kova
