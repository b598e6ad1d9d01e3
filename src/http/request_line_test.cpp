// Unit: the fields of a request line.
#include "http/request_line.h"

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
  EXPECT_EQ(FieldsOf(" \tGET\t /p \tHTTP/1.1 x\t\r"), "GET|/p|none|HTTP/1.1 x");
  EXPECT_EQ(FieldsOf("GET /p"), "GET|/p|none|HTTP/1.0");
  EXPECT_EQ(FieldsOf("GET /p\r"), "GET|/p|none|HTTP/1.0");
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

}  // namespace
}  // namespace kova
