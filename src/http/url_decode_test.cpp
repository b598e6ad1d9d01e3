// Unit: decoding of percent-escaped text.
#include "http/url_decode.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Decoded(const char* text) {
  return std::string(UrlDecode(OString(text)).NarrowView());
}

TEST(UrlDecodeTest, CopiesWhatIsNotEscaped) {
  EXPECT_EQ(Decoded("/a/b.c~d"), "/a/b.c~d");
  EXPECT_EQ(Decoded(""), "");
  EXPECT_EQ(Decoded("\xE2\x82\xAC"), "\xE2\x82\xAC");
}

TEST(UrlDecodeTest, DecodesBlanksAndBytes) {
  EXPECT_EQ(Decoded("a+b%20c"), "a b c");
  EXPECT_EQ(Decoded("%41%4a%4A"), "AJJ");
  EXPECT_EQ(Decoded("%2B%25"), "+%");
  EXPECT_EQ(Decoded("%25"
                    "41"),
            "%41");
  EXPECT_EQ(Decoded("%C3%A9"), "\xC3\xA9");
}

TEST(UrlDecodeTest, TakesEveryByte) {
  for (unsigned value = 1; value < 256; ++value) {
    const char digits[] = "0123456789abcdef";
    const std::string text = {'%', digits[value / 16], digits[value % 16]};
    EXPECT_EQ(Decoded(text.c_str()), std::string(1, static_cast<char>(value)));
  }
}

// (c AND 15) + 9 for whatever is no digit: "G" is 16, "z" 19, "%" 14, "/" 24,
// ":" 19; the sum is kept to 8 bits.
TEST(UrlDecodeTest, GivesEveryCharacterAValue) {
  EXPECT_EQ(Decoded("%0G"), "\x10");
  EXPECT_EQ(Decoded("%zz"), "\x43");
  EXPECT_EQ(Decoded("%%41"),
            "\xE4"
            "1");
  EXPECT_EQ(Decoded("%4/"), "\x58");
  EXPECT_EQ(Decoded("%4:"), "\x53");
  EXPECT_EQ(Decoded("%+1"), "\x41");
}

TEST(UrlDecodeTest, EndsAtAZeroByte) {
  EXPECT_EQ(Decoded("ab%00cd"), "ab");
  EXPECT_EQ(Decoded("%00"), "");
  // "p" and "P" are 9, so this is 16 * 16 more than a byte holds.
  EXPECT_EQ(Decoded("a%G0b"), "a");
}

TEST(UrlDecodeTest, EndsAtAnEscapeThatIsCutShort) {
  EXPECT_EQ(Decoded("ab%"), "ab");
  EXPECT_EQ(Decoded("ab%4"), "ab");
  EXPECT_EQ(Decoded("%"), "");
  EXPECT_EQ(Decoded("ab%%4"), "ab\xE4");
}

TEST(UrlDecodeTest, GivesUtf8Text) {
  const OString text = UrlDecode("%E2%82%AC");
  EXPECT_EQ(text.CodePage(), 1208u);
  EXPECT_STREQ(text.Wide(), L"\u20AC");
  EXPECT_EQ(UrlDecode("plain").CodePage(), 1208u);
}

TEST(UrlDecodeTest, EndsBytesAtTheirFirstZero) {
  using namespace std::string_view_literals;
  EXPECT_STREQ(kova::UrlDecodeBytes("ab\0cd"sv).Narrow(), "ab");
  EXPECT_STREQ(kova::UrlDecodeBytes("a+\0c%41"sv).Narrow(), "a ");
}

TEST(UrlDecodeTest, ReadsTheNarrowFormOfWideText) {
  EXPECT_STREQ(UrlDecode(L"a%41").Narrow(), "aA");
}

}  // namespace
