// Unit: finding bytes eight at a time.
#include "base/find_byte.h"

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

// Neighbours in value and the borrow of the mask's subtraction are what a
// search by words may trip over.
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

}  // namespace
}  // namespace kova
