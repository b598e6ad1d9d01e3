// Unit: the text rules that concern ASCII alone.
#include "base/ascii.h"

#include <gtest/gtest.h>

namespace kova {
namespace {

TEST(FoldAsciiTest, FoldsTheLettersAToZAndNothingElse) {
  for (int value = 0; value < 256; ++value) {
    const char c = static_cast<char>(value);
    const bool isLower = value >= 0x61 && value <= 0x7A;
    EXPECT_EQ(FoldAscii(c), isLower ? static_cast<char>(value - 32) : c);
  }
  EXPECT_EQ(FoldAscii(L'z'), L'Z');
  EXPECT_EQ(FoldAscii(L'\u00E9'), L'\u00E9');
}

TEST(EqualsNoCaseTest, IgnoresTheCaseOfAsciiLettersOnly) {
  EXPECT_TRUE(EqualsNoCase("Content-Length", "cONTENT-lENGTH"));
  EXPECT_FALSE(EqualsNoCase("Content-Length", "Content-Lengt"));
  EXPECT_FALSE(EqualsNoCase("[", "{"));
  EXPECT_FALSE(EqualsNoCase("@", "`"));
  EXPECT_TRUE(EqualsNoCase(L"Share", L"sHARE"));
  EXPECT_FALSE(EqualsNoCase(L"\u00C9", L"\u00E9"));
}

TEST(EqualsNoCaseTest, ComparesEmbeddedZeros) {
  using namespace std::string_view_literals;
  EXPECT_TRUE(EqualsNoCase("a\0b"sv, "A\0B"sv));
  EXPECT_FALSE(EqualsNoCase("a\0b"sv, "a\0c"sv));
}

TEST(TrimTest, RemovesTheSetAtTheEndsAndKeepsTheMiddle) {
  EXPECT_EQ(Trim(" \t a b\r\n", kBlanksAndLineEnds), "a b");
  EXPECT_EQ(TrimStart(" \ta ", kBlanks), "a ");
  EXPECT_EQ(TrimEnd(" a \t", kBlanks), " a");
  EXPECT_EQ(Trim("\r\n", kBlanks), "\r\n");
  EXPECT_EQ(Trim(" \t\r\n", kBlanksAndLineEnds), "");
  EXPECT_EQ(Trim("", kBlanks), "");
}

TEST(LeadingDecimalTest, ReadsTheNumberATextBeginsWith) {
  EXPECT_EQ(LeadingDecimal("10"), 10);
  EXPECT_EQ(LeadingDecimal("0012x"), 12);
  EXPECT_EQ(LeadingDecimal(" \t\n\v\f\r+5"), 5);
  EXPECT_EQ(LeadingDecimal("-5"), -5);
  EXPECT_EQ(LeadingDecimal("\t -5"), -5);
  EXPECT_EQ(LeadingDecimal("3 4"), 3);
}

TEST(LeadingDecimalTest, GivesZeroWithoutDigits) {
  EXPECT_EQ(LeadingDecimal(""), 0);
  EXPECT_EQ(LeadingDecimal("x1"), 0);
  EXPECT_EQ(LeadingDecimal("+-5"), 0);
  EXPECT_EQ(LeadingDecimal("- 5"), 0);
  EXPECT_EQ(LeadingDecimal("0x10"), 0);
}

TEST(LeadingDecimalTest, StaysWithinItsLimits) {
  EXPECT_EQ(LeadingDecimal("2147483646"), 2147483646);
  EXPECT_EQ(LeadingDecimal("2147483647"), 2147483647);
  EXPECT_EQ(LeadingDecimal("2147483648"), 2147483647);
  EXPECT_EQ(LeadingDecimal("-2147483647"), -2147483647);
  EXPECT_EQ(LeadingDecimal("-2147483648"), INT32_MIN);
  EXPECT_EQ(LeadingDecimal("-2147483649"), INT32_MIN);
  EXPECT_EQ(LeadingDecimal("99999999999999999999999999"), 2147483647);
}

}  // namespace
}  // namespace kova
