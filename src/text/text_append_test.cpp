// Unit: values as text.
#include "text/text_append.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using kova::AppendDecimal;
using kova::AppendHex;
using kova::AppendNarrow;
using kova::HexDigits;

std::wstring Decimal(int64_t number) {
  std::wstring text = L"n";
  AppendDecimal(text, number);
  return text;
}

std::wstring HexText(uint64_t number, int leastDigits,
                     HexDigits digits = HexDigits::kLower) {
  std::wstring text;
  AppendHex(text, number, leastDigits, digits);
  return text;
}

TEST(TextAppendTest, ShowsNumbersInDecimal) {
  EXPECT_EQ(Decimal(0), L"n0");
  EXPECT_EQ(Decimal(-1), L"n-1");
  EXPECT_EQ(Decimal(std::numeric_limits<int64_t>::min()),
            L"n-9223372036854775808");
  std::wstring most;
  AppendDecimal(most, std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(most, L"18446744073709551615");
}

TEST(TextAppendTest, ShowsNumbersInHexadecimalAsWideAsAsked) {
  EXPECT_EQ(HexText(0, 1), L"0");
  EXPECT_EQ(HexText(0, 4), L"0000");
  EXPECT_EQ(HexText(0xABC, 2), L"abc");
  EXPECT_EQ(HexText(0xABC, 3), L"abc");
  EXPECT_EQ(HexText(0xABC, 4), L"0abc");
  EXPECT_EQ(HexText(0xABC, 16, HexDigits::kUpper), L"0000000000000ABC");
  EXPECT_EQ(HexText(~uint64_t{0}, 16), L"ffffffffffffffff");
}

TEST(TextAppendTest, WidensEachByteByItself) {
  std::wstring text = L"<";
  AppendNarrow(text, std::string_view("a\0\xFF", 3));
  EXPECT_EQ(text, std::wstring(L"<a\0\x00FF", 4));
}

}  // namespace
