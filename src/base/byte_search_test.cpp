// Unit: searching bytes, sixteen and sixty-four at a time.
#include "base/byte_search.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace kova {
namespace {

size_t FindSlowly(const std::string& text, size_t from, char a, char b) {
  while (from < text.size() && text[from] != a && text[from] != b) ++from;
  return from;
}

TEST(FindByteTest, FindsTheByteAtEachPlace) {
  for (size_t length = 0; length < 40; ++length) {
    for (size_t at = 0; at < length; ++at) {
      std::string text(length, 'x');
      text[at] = '\n';
      EXPECT_EQ(FindByte(text, 0, '\n'), at);
      EXPECT_EQ(FindByte(text, at, '\n'), at);
      EXPECT_EQ(FindByte(text, at + 1, '\n'), length);
    }
  }
}

TEST(FindByteTest, GivesTheSizeWhereThereIsNone) {
  EXPECT_EQ(FindByte("", 0, 'a'), 0u);
  EXPECT_EQ(FindByte("bcdefghijk", 0, 'a'), 10u);
  EXPECT_EQ(FindByte("abc", 3, 'a'), 3u);
  EXPECT_EQ(FindByte(std::string(9, '\x80'), 0, '\0'), 9u);
}

// Bytes next to each other in value, and those above 0x7F, are where a search
// of many at once may go wrong.
TEST(FindByteTest, AgreesWithTheSearchByteByByte) {
  std::mt19937 random(4660);
  const std::string alphabet("\0\x01\x02\x7F\x80\x81\xFF\t\n\v", 10);
  for (int round = 0; round < 50000; ++round) {
    std::string text;
    for (size_t left = random() % 30; left > 0; --left) {
      text += alphabet[random() % alphabet.size()];
    }
    const size_t from = random() % (text.size() + 1);
    const char a = alphabet[random() % alphabet.size()];
    const char b = alphabet[random() % alphabet.size()];
    ASSERT_EQ(FindEither(text, from, a, b), FindSlowly(text, from, a, b))
        << testing::PrintToString(text);
  }
}

TEST(ByteBlockTest, TellsThePlaceOfEachByte) {
  for (size_t at = 0; at < ByteBlock::kBytes; ++at) {
    std::string text(ByteBlock::kBytes, 'x');
    text[at] = '\n';
    const ByteBlock block(text.data());
    EXPECT_EQ(block.Equal('\n'), uint64_t{1} << at);
    EXPECT_EQ(block.Equal('x'), ~(uint64_t{1} << at));
    EXPECT_TRUE(block.Has('\n')) << at;
  }
}

TEST(ByteBlockTest, HasNoByteThatIsNotThere) {
  const std::string text(ByteBlock::kBytes, '\x80');
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
      std::string text(ByteBlock::kBytes, other);
      text[at] = '\0';
      EXPECT_TRUE(ByteBlock(text.data()).HasZero()) << at;
      EXPECT_EQ(ByteBlock(text.data()).Equal('\0'), uint64_t{1} << at);
    }
  }
}

TEST(ByteBlockTest, TakesBytesThatAreNotAligned) {
  std::string text(ByteBlock::kBytes + 7, 'x');
  text[7 + 63] = '\n';
  EXPECT_EQ(ByteBlock(text.data() + 7).Equal('\n'), uint64_t{1} << 63);
}

}  // namespace
}  // namespace kova
