// Unit: header lines as they lie in a request's bytes.
#include "http/header_block.h"

#include <gtest/gtest.h>

namespace kova {
namespace {

constexpr std::string_view kBlock =
    "Host: a:1\r\nX:\r\n no colon\r\n\t x-y \t:\tz \r\n\nHOST: b";

TEST(HeaderBlockTest, GivesTheFirstLineOfAName) {
  EXPECT_EQ(FindHeaderValue(kBlock, "host"), "a:1");
  EXPECT_EQ(FindHeaderValue(kBlock, "HOST"), "a:1");
  EXPECT_EQ(FindHeaderValue(kBlock, "X"), "");
  EXPECT_EQ(FindHeaderValue("A:1\nB:2", "B"), "2");
}

TEST(HeaderBlockTest, TakesABlankBeforeTheColonForPartOfTheName) {
  EXPECT_EQ(FindHeaderValue(kBlock, "x-y"), "");
  EXPECT_EQ(FindHeaderValue(kBlock, "X-Y \t"), "z");
}

TEST(HeaderBlockTest, HasNoOtherNames) {
  EXPECT_EQ(FindHeaderValue(kBlock, "Hos"), "");
  EXPECT_EQ(FindHeaderValue(kBlock, "no colon"), "");
  EXPECT_EQ(FindHeaderValue("", "Host"), "");
}

TEST(HeaderBlockTest, AnnouncesHowLongABodyIs) {
  EXPECT_EQ(AnnouncedBodyBytes("A: 1\ncontent-length: 10"), 10);
  EXPECT_EQ(AnnouncedBodyBytes("Content-Length: x"), 0);
  EXPECT_EQ(AnnouncedBodyBytes("Content-Length:"), INT32_MIN);
  EXPECT_EQ(AnnouncedBodyBytes(""), INT32_MIN);
}

TEST(HeaderBlockTest, IsFollowedByAWholeBodyOrByNone) {
  EXPECT_TRUE(IsWholeBody(10, 0));
  EXPECT_FALSE(IsWholeBody(10, 1));
  EXPECT_FALSE(IsWholeBody(10, 9));
  EXPECT_TRUE(IsWholeBody(10, 10));
  EXPECT_TRUE(IsWholeBody(10, 11));
  EXPECT_TRUE(IsWholeBody(INT32_MIN, 1));
}

}  // namespace
}  // namespace kova
