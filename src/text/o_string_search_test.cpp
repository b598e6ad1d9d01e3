// Unit: comparing, searching and taking pieces of texts.
#include <gtest/gtest.h>

#include <string>

#include "text/o_string.h"

namespace {

OString Utf8(const char* bytes) { return OString::FromUtf8(bytes); }

TEST(OStringCompareTest, OrdersByTheFirstDifference) {
  EXPECT_EQ(OString("abc").Compare("abc"), 0);
  EXPECT_EQ(OString("abc").Compare("abd"), -1);
  EXPECT_EQ(OString("b").Compare("abd"), 1);
  EXPECT_EQ(OString("ab").Compare("abc"), -1);
  EXPECT_EQ(OString("abc").Compare("ab"), 1);
  EXPECT_EQ(OString().Compare(""), 0);
  EXPECT_EQ(OString().Compare("a"), -1);
}

TEST(OStringCompareTest, ReadsBytesAsSigned) {
  EXPECT_EQ(OString("\xE9").Compare("a"), -1);
  EXPECT_EQ(OString("a").Compare("\xE9"), 1);
  EXPECT_EQ(OString("\x80").Compare("\x7F"), -1);
  EXPECT_EQ(OString("\x80").Compare("\xFF"), -1);
  // The terminator is a byte of 0, and so greater than 0xE9.
  EXPECT_EQ(OString("a").Compare("a\xE9"), 1);
  EXPECT_EQ(OString("a\xE9").Compare("a"), -1);
}

TEST(OStringCompareTest, DoesNotDependOnTheFormsThatWereRead) {
  const OString text("\xE9");
  EXPECT_STREQ(text.Wide(), L"\u00E9");
  EXPECT_EQ(text.Compare("a"), -1);
}

TEST(OStringCompareTest, ReadsUnitsAsUnsigned) {
  EXPECT_EQ(OString(L"\u00E9").Compare(L"a"), 1);
  EXPECT_EQ(OString(L"\uFFFF").Compare(L"a"), 1);
  EXPECT_EQ(OString(L"\u4E2D").Compare("a"), 1);
  EXPECT_EQ(OString("a").Compare(L"\uFF21"), -1);
}

TEST(OStringCompareTest, ComparesAcrossCodePages) {
  OString bytes("\xE9");
  bytes.SetCodePage(64999);
  EXPECT_EQ(OString("\xE9").Compare(bytes), 0);
  EXPECT_EQ(OString("\xE9").Compare(Utf8("\xC3\xA9")), 0);
  EXPECT_EQ(Utf8("/kova").Compare("/kova"), 0);
  EXPECT_EQ(Utf8("/kova").Compare("/Kova"), 1);
}

TEST(OStringCompareNoCaseTest, FoldsAsciiLettersOnly) {
  EXPECT_EQ(OString("Content-Length").CompareNoCase("content-length"), 0);
  EXPECT_NE(OString(L"\u00C9").CompareNoCase(L"\u00E9"), 0);
  EXPECT_NE(OString("\xC9").CompareNoCase("\xE9"), 0);
  EXPECT_EQ(OString("a").CompareNoCase("B"), -1);
  EXPECT_EQ(OString("B").CompareNoCase("a"), 1);
  EXPECT_EQ(OString(L"Printer").CompareNoCase("pRINTER"), 0);
}

TEST(OStringCompareNoCaseTest, FoldsBeforeItOrders) {
  // "_" lies between the upper-case and the lower-case letters.
  EXPECT_EQ(OString("a").Compare("_"), 1);
  EXPECT_EQ(OString("a").CompareNoCase("_"), -1);
  EXPECT_EQ(OString("`").CompareNoCase("@"), 1);
  EXPECT_EQ(OString("{").CompareNoCase("["), 1);
}

TEST(OStringFindTest, FindsTheFirstMatchAtOrAfterTheStart) {
  const OString text("abcabc");
  EXPECT_EQ(text.Find("bc"), 1);
  EXPECT_EQ(text.Find("bc", 1), 1);
  EXPECT_EQ(text.Find("bc", 2), 4);
  EXPECT_EQ(text.Find("bc", 5), -1);
  EXPECT_EQ(text.Find("bc", -3), 1);
  EXPECT_EQ(text.Find("x"), -1);
}

TEST(OStringFindTest, FindsNothingAtOrPastTheEnd) {
  const OString text("abc");
  EXPECT_EQ(text.Find("c", 2), 2);
  EXPECT_EQ(text.Find("c", 3), -1);
  EXPECT_EQ(text.Find("", 2), 2);
  EXPECT_EQ(text.Find("", 3), -1);
  EXPECT_EQ(text.Find("a", INT32_MAX), -1);
  EXPECT_EQ(OString().Find("a"), -1);
  EXPECT_EQ(OString().Find(""), -1);
}

TEST(OStringFindTest, CountsInTheFormThatTheTextPrefers) {
  const OString utf8 = Utf8("\xE2\x82\xACxy");
  EXPECT_EQ(utf8.Find("y"), 2);
  EXPECT_EQ(utf8.Find(L"\u20AC"), 0);
  EXPECT_EQ(utf8.Find(OString("x")), 1);
  const OString wide(L"\u4E2D=1");
  EXPECT_EQ(wide.Find("="), 1);
  EXPECT_EQ(OString("a=b").Find(L"="), 1);
  EXPECT_EQ(OString("a\x80").Find(L"\u20AC"), 1);
}

TEST(OStringFindTest, TakesPlainTextByTheAnsiCodePage) {
  // A euro sign, but no text in UTF-8.
  EXPECT_EQ(Utf8("x\xE2\x82\xAC").Find("\x80"), 1);
  EXPECT_EQ(Utf8("x\xE2\x82\xAC").Find("\xE2\x82\xAC"), -1);
  OString bytes;
  bytes.SetCodePage(64999);
  bytes = "x\x80";
  EXPECT_FALSE(bytes.PrefersWide());
  EXPECT_EQ(bytes.Find(L"\u20AC"), 1);
}

TEST(OStringFindFirstBlankTest, FindsBlanksAndTabs) {
  EXPECT_EQ(OString("GET / HTTP").FindFirstBlank(), 3);
  EXPECT_EQ(OString("a\tb c").FindFirstBlank(), 1);
  EXPECT_EQ(OString(" a").FindFirstBlank(), 0);
  EXPECT_EQ(OString("abc\r\n").FindFirstBlank(), -1);
  EXPECT_EQ(OString("").FindFirstBlank(), -1);
  EXPECT_EQ(OString().FindFirstBlank(), -1);
}

TEST(OStringReverseFindOneOfTest, FindsTheLastCharacterOfTheSet) {
  EXPECT_EQ(OString("a/b\\c").ReverseFindOneOf("/\\"), 3);
  EXPECT_EQ(OString("a/b\\c").ReverseFindOneOf("/"), 1);
  EXPECT_EQ(OString("abc").ReverseFindOneOf("xyz"), -1);
  EXPECT_EQ(OString("abc").ReverseFindOneOf(""), -1);
  EXPECT_EQ(OString().ReverseFindOneOf("a"), -1);
  EXPECT_EQ(OString("abc").ReverseFindOneOf("c"), 2);
}

TEST(OStringReverseFindOneOfTest, CountsInTheFormOfThePair) {
  EXPECT_EQ(Utf8("\xE2\x82\xAC/x").ReverseFindOneOf("/"), 1);
  EXPECT_EQ(OString("a\x80z").ReverseFindOneOf(L"\u20AC\u4E2D"), 1);
  EXPECT_EQ(OString(L"\u4E2D\u6587").ReverseFindOneOf(L"\u4E2D"), 0);
}

TEST(OStringMidTest, CutsThePieceToTheText) {
  const OString text("hello");
  EXPECT_STREQ(text.Mid(2, 100).Narrow(), "llo");
  EXPECT_STREQ(text.Mid(2, INT32_MAX).Narrow(), "llo");
  EXPECT_STREQ(text.Mid(1, 3).Narrow(), "ell");
  EXPECT_STREQ(text.Mid(4, 1).Narrow(), "o");
  EXPECT_TRUE(text.Mid(5, 1).IsEmpty());
  EXPECT_TRUE(text.Mid(INT32_MAX, INT32_MAX).IsEmpty());
  EXPECT_TRUE(text.Mid(1, 0).IsEmpty());
}

TEST(OStringMidTest, TakesNegativeNumbersForZero) {
  const OString text("hello");
  EXPECT_STREQ(text.Mid(-3, 2).Narrow(), "he");
  EXPECT_TRUE(text.Mid(2, -1).IsEmpty());
  EXPECT_TRUE(text.Mid(INT32_MIN, INT32_MIN).IsEmpty());
}

TEST(OStringMidTest, SharesTheRecordOfTheWholeText) {
  const OString text("hello");
  EXPECT_TRUE(text.Mid(0, 5).SharesRecordWith(text));
  EXPECT_TRUE(text.Mid(-1, 6).SharesRecordWith(text));
  EXPECT_EQ(text.Mid(0, 5).Narrow(), text.Narrow());
  EXPECT_FALSE(text.Mid(0, 4).SharesRecordWith(text));
  EXPECT_FALSE(text.Mid(1, 4).SharesRecordWith(text));
}

TEST(OStringMidTest, KeepsTheCodePageAndThePreferredForm) {
  const OString utf8 = Utf8("\xE2\x82\xACxy");
  const OString piece = utf8.Mid(0, 2);
  EXPECT_EQ(piece.CodePage(), 1208u);
  EXPECT_TRUE(piece.HasWide());
  EXPECT_FALSE(piece.HasNarrow());
  EXPECT_STREQ(piece.Narrow(), "\xE2\x82\xACx");
  EXPECT_EQ(utf8.Mid(3, 1).CodePage(), 1208u);
  const OString narrow = OString("abc").Mid(0, 2);
  EXPECT_TRUE(narrow.HasNarrow());
  EXPECT_FALSE(narrow.HasWide());
}

TEST(OStringMidTest, TextThatDoesNotConvertHasNoPieces) {
  const OString cut = Utf8("\xE2\x82");
  for (const OString& piece : {cut.Mid(0, 1), cut.Mid(5, 1), cut.Mid(0, 0),
                               cut.Left(1), cut.Right(1)}) {
    EXPECT_TRUE(piece.IsEmpty());
    EXPECT_STREQ(piece.Narrow(), "");
    EXPECT_EQ(piece.CodePage(), 1208u);
  }
}

TEST(OStringMidTest, TakesTheEndsOfAText) {
  const OString text("hello");
  EXPECT_STREQ(text.Left(2).Narrow(), "he");
  EXPECT_STREQ(text.Right(2).Narrow(), "lo");
  EXPECT_TRUE(text.Left(0).IsEmpty());
  EXPECT_TRUE(text.Right(0).IsEmpty());
  EXPECT_TRUE(text.Left(-1).IsEmpty());
  EXPECT_TRUE(text.Right(-1).IsEmpty());
  EXPECT_TRUE(text.Right(INT32_MIN).IsEmpty());
}

TEST(OStringMidTest, SharesTheRecordWhereTheEndIsTheWholeText) {
  const OString text("hello");
  EXPECT_TRUE(text.Left(5).SharesRecordWith(text));
  EXPECT_TRUE(text.Left(INT32_MAX).SharesRecordWith(text));
  EXPECT_TRUE(text.Right(5).SharesRecordWith(text));
  EXPECT_TRUE(text.Right(INT32_MAX).SharesRecordWith(text));
}

}  // namespace
