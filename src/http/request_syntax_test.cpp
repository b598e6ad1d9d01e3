// Unit: what a request line and header lines say.
#include "http/request_syntax.h"

#include <gtest/gtest.h>

#include <string>

namespace kova {
namespace {

// Method, path, query and version, with bars between.
std::string FieldsOf(std::string_view line) {
  const auto found = SplitRequestLine(line);
  if (!found) return "none";
  return std::string(found->method) + "|" + std::string(found->path) + "|" +
         std::string(found->query.value_or("none")) + "|" +
         std::string(found->version);
}

bool HasBoth(std::string_view line) {
  const auto found = SplitRequestLine(line);
  return found && HasMethodAndPath(*found);
}

TEST(RequestLineTest, HasFourFields) {
  EXPECT_EQ(FieldsOf("GET /p?a=b HTTP/1.1"), "GET|/p|a=b|HTTP/1.1");
  EXPECT_EQ(FieldsOf(" \tGET\t /p \tHTTP/1.1 x\t\r\n"),
            "GET|/p|none|HTTP/1.1 x");
  EXPECT_EQ(FieldsOf("GET /p"), "GET|/p|none|HTTP/1.0");
  EXPECT_EQ(FieldsOf("GET /p\r\n"), "GET|/p|none|HTTP/1.0");
  EXPECT_EQ(FieldsOf("GET /p "), "GET|/p|none|");
}

TEST(RequestLineTest, HasAQueryBehindTheFirstQuestionMark) {
  EXPECT_EQ(FieldsOf("GET /p? v"), "GET|/p||v");
  EXPECT_EQ(FieldsOf("GET /p?a?b v"), "GET|/p|a?b|v");
  EXPECT_EQ(FieldsOf("GET ?a v"), "GET||a|v");
  EXPECT_EQ(FieldsOf("GET /a%3Fb v"), "GET|/a%3Fb|none|v");
}

TEST(RequestLineTest, NeedsABlank) {
  EXPECT_EQ(FieldsOf(""), "none");
  EXPECT_EQ(FieldsOf("GET"), "none");
  EXPECT_EQ(FieldsOf(" \tGET"), "none");
  EXPECT_EQ(FieldsOf("GET "), "GET||none|HTTP/1.0");
}

TEST(RequestLineTest, NeedsAMethodAndADecodedPath) {
  EXPECT_TRUE(HasBoth("GET / HTTP/1.1"));
  EXPECT_TRUE(HasBoth("GET + v"));
  EXPECT_TRUE(HasBoth("GET %41 v"));
  EXPECT_FALSE(HasBoth("GET "));
  EXPECT_FALSE(HasBoth("GET ?a v"));
  EXPECT_FALSE(HasBoth("GET %00/ v"));
  EXPECT_FALSE(HasBoth("GET %4 v"));
}

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
  EXPECT_EQ(AnnouncedBodyBytes("Content-Length: 2\nContent-Length: 9"), 2);
  EXPECT_EQ(AnnouncedBodyBytes("Content-Length: -1"), -1);
  EXPECT_EQ(AnnouncedBodyBytes("Content-Length: 99999999999"), INT32_MAX);
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
  EXPECT_FALSE(IsWholeBody(INT32_MAX, 1));
}

}  // namespace
}  // namespace kova
