// Unit: where the parts of a request end.
#include "http/request_syntax.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace kova {
namespace {

using namespace std::string_literals;

// The search position by position: at each one the longest terminator first.
std::optional<ScannedPart> SearchSlowly(const std::string& bytes, size_t from) {
  for (size_t i = from; i + 1 < bytes.size(); ++i) {
    if (bytes[i] == '\0') return std::nullopt;
    for (const char* const end : {"\r\n\r\n", "\n\r\n", "\r\n\n", "\n\n"}) {
      const std::string terminator = end;
      if (bytes.compare(i, terminator.size(), terminator) == 0) {
        return ScannedPart{i, terminator.size()};
      }
    }
  }
  return std::nullopt;
}

void ExpectSameAsSlowSearch(const std::string& bytes, size_t from) {
  const auto expected = SearchSlowly(bytes, from);
  const auto found = ScanHeaderEnd(bytes, from);
  ASSERT_EQ(found.has_value(), expected.has_value())
      << testing::PrintToString(bytes) << " from " << from;
  if (!expected) return;
  EXPECT_EQ(found->end, expected->end) << testing::PrintToString(bytes);
  EXPECT_EQ(found->terminator, expected->terminator)
      << testing::PrintToString(bytes);
}

TEST(ScanHeaderEndTest, AgreesWithTheSearchPositionByPosition) {
  const std::string alphabet = "a\r\n\0"s;
  for (size_t length = 0; length <= 8; ++length) {
    size_t combinations = 1;
    for (size_t i = 0; i < length; ++i) combinations *= alphabet.size();
    for (size_t number = 0; number < combinations; ++number) {
      std::string bytes;
      for (size_t i = 0, rest = number; i < length; ++i, rest /= 4) {
        bytes += alphabet[rest % 4];
      }
      for (size_t from = 0; from < length && from < 3; ++from) {
        ExpectSameAsSlowSearch(bytes, from);
      }
    }
  }
}

// Blocks of 64 bytes are looked at in one go: terminators, parts of them and
// zeros before, across and behind the places where blocks meet.
TEST(ScanHeaderEndTest, AgreesWithTheSearchWhereverBlocksMeet) {
  const std::string marks[] = {"\r\n\r\n", "\n\r\n", "\r\n\n", "\n\n",
                               "\n\r",     "\nx\n",  "\n",     "\0"s};
  for (const std::string& first : marks) {
    for (const std::string& second : marks) {
      for (size_t at = 56; at < 72; ++at) {
        std::string bytes(150, 'a');
        bytes.replace(at, first.size(), first);
        bytes.replace(at + 62, second.size(), second);
        ExpectSameAsSlowSearch(bytes, 0);
        ExpectSameAsSlowSearch(bytes, 1);
        ExpectSameAsSlowSearch(bytes, at);
        ExpectSameAsSlowSearch(bytes, at + 1);
        ExpectSameAsSlowSearch(bytes.substr(0, at + 3), 0);
      }
    }
  }
}

TEST(ScanHeaderEndTest, AgreesWithTheSearchInLongRandomBytes) {
  std::mt19937 random(4660);
  const std::string alphabet = "aaaaaaaaaaaaaaa\r\r\n\n"s;
  for (int round = 0; round < 20000; ++round) {
    std::string bytes(random() % 300, 'a');
    for (char& byte : bytes) byte = alphabet[random() % alphabet.size()];
    if (!bytes.empty() && round % 4 == 0) {
      bytes[random() % bytes.size()] = '\0';
    }
    ExpectSameAsSlowSearch(bytes, bytes.empty() ? 0 : random() % bytes.size());
  }
}

TEST(ScanRequestLineTest, EndsAtTheFirstLineFeed) {
  EXPECT_EQ(ScanRequestLine("ab\nc\n")->end, 2u);
  EXPECT_EQ(ScanRequestLine("ab\nc\n")->terminator, 1u);
  EXPECT_EQ(ScanRequestLine("ab\r\nc")->end, 2u);
  EXPECT_EQ(ScanRequestLine("ab\r\nc")->terminator, 2u);
  EXPECT_EQ(ScanRequestLine("ab\r\r\n")->end, 3u);
  EXPECT_EQ(ScanRequestLine("\n")->end, 0u);
  EXPECT_EQ(ScanRequestLine("\r\n")->end, 0u);
}

TEST(ScanRequestLineTest, NeedsALineFeedAndNoZeroBeforeIt) {
  EXPECT_FALSE(ScanRequestLine(""));
  EXPECT_FALSE(ScanRequestLine("ab\r"));
  EXPECT_FALSE(ScanRequestLine("a\0b\n"s));
  EXPECT_FALSE(ScanRequestLine("\0\n"s));
  EXPECT_TRUE(ScanRequestLine("a\n\0"s));
}

}  // namespace
}  // namespace kova
