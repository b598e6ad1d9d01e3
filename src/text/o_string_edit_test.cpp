// Unit: appending, deleting and replacing in texts.
#include <gtest/gtest.h>

#include <string>

#include "text/o_string.h"

namespace {

OString Utf8(const char* bytes) { return OString::FromUtf8(bytes); }

TEST(OStringAppendTest, WorksInTheNarrowFormAndClearsTheWideOne) {
  OString text("abc");
  EXPECT_STREQ(text.Wide(), L"abc");
  EXPECT_TRUE(text.HasNarrow());
  text.Append("d");
  EXPECT_FALSE(text.HasWide());
  EXPECT_STREQ(text.Narrow(), "abcd");
  EXPECT_STREQ(text.Wide(), L"abcd");
}

TEST(OStringAppendTest, WorksInTheWideFormWhereEitherTextPrefersIt) {
  OString text("abc");
  text.Append(L"\u4E2D");
  EXPECT_FALSE(text.HasNarrow());
  EXPECT_STREQ(text.Wide(), L"abc\u4E2D");
  OString wide(L"\u4E2D");
  EXPECT_STREQ(wide.Narrow(), "?");
  wide.Append("d");
  EXPECT_FALSE(wide.HasNarrow());
  EXPECT_STREQ(wide.Wide(),
               L"\u4E2D"
               L"d");
}

TEST(OStringAppendTest, WorksInTheWideFormWhereTheCodePagesDiffer) {
  OString text("\xE9");
  OString other("\xE9");
  other.SetCodePage(64999);
  text.Append(other);
  EXPECT_STREQ(text.Wide(), L"\u00E9\u00E9");
  EXPECT_FALSE(text.HasNarrow());
  EXPECT_EQ(text.CodePage(), 0u);
  OString mixed("x");
  mixed.Append(Utf8("\xE2\x82\xAC"));
  EXPECT_STREQ(mixed.Wide(), L"x\u20AC");
}

TEST(OStringAppendTest, AppendingNothingDoesNotCopyASharedRecord) {
  OString text("abc");
  const OString other(text);
  text.Append("");
  text.Append(OString());
  EXPECT_TRUE(text.SharesRecordWith(other));
}

TEST(OStringAppendTest, ATextWithoutTextSharesTheOther) {
  const OString other = Utf8("abc");
  OString null;
  null.Append(other);
  EXPECT_TRUE(null.SharesRecordWith(other));
  EXPECT_EQ(null.CodePage(), 1208u);
  OString empty("");
  empty.Append(other);
  EXPECT_TRUE(empty.SharesRecordWith(other));
}

TEST(OStringAppendTest, AppendsACopyOfItself) {
  OString text("abc");
  text.Append(text);
  EXPECT_STREQ(text.Narrow(), "abcabc");
  OString sharing(text);
  sharing.Append(text);
  EXPECT_STREQ(sharing.Narrow(), "abcabcabcabc");
  EXPECT_STREQ(text.Narrow(), "abcabc");
  OString wide(L"xy");
  wide.Append(wide);
  EXPECT_STREQ(wide.Wide(), L"xyxy");
}

TEST(OStringAppendTest, LeavesASharedRecordAlone) {
  OString text("abc");
  const OString other(text);
  text.Append("d");
  EXPECT_STREQ(other.Narrow(), "abc");
  EXPECT_STREQ(text.Narrow(), "abcd");
  EXPECT_FALSE(text.SharesRecordWith(other));
}

TEST(OStringAppendTest, GrowsTheCapacityByItsRule) {
  OString text(std::string(30, 'x').c_str());
  text.Append("y");
  EXPECT_EQ(text.Capacity(), 32u);
  text.Append("z");
  EXPECT_EQ(text.Capacity(), 64u);
  EXPECT_EQ(text.Length(), 32);
  OString wide(std::wstring(31, L'x').c_str());
  wide.Append(L"y");
  EXPECT_EQ(wide.Capacity(), 64u);
  OString roomy(std::string(100, 'x').c_str());
  roomy = "a";
  OString sharing(roomy);
  sharing.Append("b");
  EXPECT_EQ(sharing.Capacity(), 128u);
}

// A block that moved for each 32 characters would move 31250 times.
TEST(OStringAppendTest, MovesItsBlockRarelyWhileGrowingInSmallPieces) {
  OString text("x");
  const OString piece("y");
  size_t moves = 0;
  const char* last = nullptr;
  for (int i = 0; i < 1000000; ++i) {
    text.Append(piece);
    if (text.Narrow() != last) ++moves;
    last = text.Narrow();
  }
  EXPECT_LE(moves, 60u);
  EXPECT_EQ(text.Length(), 1000001);
  EXPECT_EQ(text.Capacity(), 1000032u);
}

TEST(OStringConcatenationTest, BuildsANewText) {
  const OString left("ab");
  const OString right("cd");
  const OString both = left + right;
  EXPECT_STREQ(both.Narrow(), "abcd");
  EXPECT_STREQ(left.Narrow(), "ab");
  EXPECT_STREQ((left + ": " + right + L"\u4E2D").Wide(), L"ab: cd\u4E2D");
  EXPECT_TRUE((left + OString()).SharesRecordWith(left));
  EXPECT_TRUE((OString() + right).SharesRecordWith(right));
}

TEST(OStringDeleteTest, RemovesFromEveryPresentForm) {
  OString text("abcdef");
  EXPECT_STREQ(text.Wide(), L"abcdef");
  text.Delete(1, 2);
  EXPECT_TRUE(text.HasNarrow());
  EXPECT_TRUE(text.HasWide());
  EXPECT_STREQ(text.Narrow(), "adef");
  EXPECT_STREQ(text.Wide(), L"adef");
}

TEST(OStringDeleteTest, CutsTheCountToTheEnd) {
  OString text("abcdef");
  text.Delete(4, 100);
  EXPECT_STREQ(text.Narrow(), "abcd");
  text.Delete(3, INT32_MAX);
  EXPECT_STREQ(text.Narrow(), "abc");
  text.Delete(0, 3);
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_FALSE(text.PrefersWide());
}

TEST(OStringDeleteTest, IgnoresPositionsOutsideTheText) {
  OString text("abc");
  const OString other(text);
  text.Delete(3, 1);
  text.Delete(-1, 1);
  text.Delete(0, 0);
  text.Delete(0, -1);
  EXPECT_STREQ(text.Narrow(), "abc");
  EXPECT_TRUE(text.SharesRecordWith(other));
  OString null;
  null.Delete(0, 1);
  EXPECT_TRUE(null.IsEmpty());
}

TEST(OStringDeleteTest, CountsCharactersInMultiByteText) {
  OString text = Utf8("\xE2\x82\xAC\xC3\xA9z");
  text.Delete(0, 1);
  EXPECT_STREQ(text.Wide(), L"\u00E9z");
  EXPECT_STREQ(text.Narrow(), "\xC3\xA9z");
  text.Delete(1, 1);
  EXPECT_STREQ(text.Narrow(), "\xC3\xA9");
  EXPECT_STREQ(text.Wide(), L"\u00E9");
}

TEST(OStringDeleteTest, LeavesASharedRecordAlone) {
  OString text("abc");
  const OString other(text);
  text.Delete(0, 1);
  EXPECT_STREQ(text.Narrow(), "bc");
  EXPECT_STREQ(other.Narrow(), "abc");
}

TEST(OStringReplaceTest, ReplacesEveryOccurrence) {
  OString text("a.b.c.");
  EXPECT_EQ(text.Replace(".", "--"), 3);
  EXPECT_STREQ(text.Narrow(), "a--b--c--");
  EXPECT_EQ(text.Replace("--", ""), 3);
  EXPECT_STREQ(text.Narrow(), "abc");
  EXPECT_EQ(text.Replace("abc", ""), 1);
  EXPECT_TRUE(text.IsEmpty());
}

TEST(OStringReplaceTest, DoesNotOverlapNorReplaceWhatItWrote) {
  OString text("aaaaa");
  EXPECT_EQ(text.Replace("aa", "a"), 2);
  EXPECT_STREQ(text.Narrow(), "aaa");
  EXPECT_EQ(text.Replace("a", "aa"), 3);
  EXPECT_STREQ(text.Narrow(), "aaaaaa");
  OString shifted("abab");
  EXPECT_EQ(shifted.Replace("ab", "ba"), 2);
  EXPECT_STREQ(shifted.Narrow(), "baba");
}

TEST(OStringReplaceTest, GivesZeroWhereNothingChanges) {
  OString text("abc");
  const OString other(text);
  EXPECT_EQ(text.Replace("", "x"), 0);
  EXPECT_EQ(text.Replace(OString(), "x"), 0);
  EXPECT_EQ(text.Replace("b", "b"), 0);
  EXPECT_EQ(text.Replace("x", "y"), 0);
  EXPECT_EQ(OString().Replace("x", "y"), 0);
  EXPECT_TRUE(text.SharesRecordWith(other));
}

TEST(OStringReplaceTest, WorksInPlaceWhereTheLengthsAreEqual) {
  OString text("a/b/c");
  const char* const before = text.Narrow();
  EXPECT_STREQ(text.Wide(), L"a/b/c");
  EXPECT_EQ(text.Replace("/", "\\"), 2);
  EXPECT_EQ(text.Narrow(), before);
  EXPECT_FALSE(text.HasWide());
  EXPECT_STREQ(text.Wide(), L"a\\b\\c");
}

TEST(OStringReplaceTest, LeavesASharedRecordAlone) {
  OString text("a/b");
  const OString other(text);
  EXPECT_EQ(text.Replace("/", ":"), 1);
  EXPECT_STREQ(other.Narrow(), "a/b");
  OString longer(other);
  EXPECT_EQ(longer.Replace("/", "::"), 1);
  EXPECT_STREQ(other.Narrow(), "a/b");
  EXPECT_STREQ(longer.Narrow(), "a::b");
}

TEST(OStringReplaceTest, WorksWideWhereAnyTextIsWide) {
  OString text("a-b");
  EXPECT_EQ(text.Replace("-", L"\u4E2D"), 1);
  EXPECT_STREQ(text.Wide(),
               L"a\u4E2D"
               L"b");
  EXPECT_FALSE(text.HasNarrow());
  EXPECT_EQ(text.Replace(L"\u4E2D", "--"), 1);
  EXPECT_STREQ(text.Narrow(), "a--b");
  OString utf8 = Utf8("\xE2\x82\xAC\xE2\x82\xAC");
  EXPECT_EQ(utf8.Replace(L"\u20AC", "e"), 2);
  EXPECT_STREQ(utf8.Narrow(), "ee");
}

TEST(OStringReplaceTest, ComparesCharactersWhereTheCodePagesDiffer) {
  // The byte 0x80 is a euro sign in one code page, and U+0080 in the other.
  OString euro("a\x80");
  OString control;
  control.SetCodePage(64999);
  control = "\x80";
  EXPECT_EQ(euro.Replace(control, "c"), 0);
  EXPECT_STREQ(euro.Wide(), L"a\u20AC");
  OString text("abc");
  EXPECT_EQ(text.Replace("b", control), 1);
  EXPECT_STREQ(text.Wide(), L"a\u0080c");
  OString bytes(control);
  EXPECT_EQ(bytes.Replace("\x80", "c"), 0);
  EXPECT_EQ(bytes.Replace(control, "\x80"), 1);
  EXPECT_STREQ(bytes.Wide(), L"\u20AC");
}

TEST(OStringReplaceTest, TakesItselfForAnArgument) {
  OString text("ab");
  EXPECT_EQ(text.Replace(text, "xyz"), 1);
  EXPECT_STREQ(text.Narrow(), "xyz");
  EXPECT_EQ(text.Replace("y", text), 1);
  EXPECT_STREQ(text.Narrow(), "xxyzz");
}

TEST(OStringReplaceTest, GrowsTheCapacityByItsRule) {
  OString text(std::string(16, 'x').c_str());
  EXPECT_EQ(text.Replace("x", "yy"), 16);
  EXPECT_EQ(text.Length(), 32);
  EXPECT_EQ(text.Capacity(), 64u);
  EXPECT_EQ(text.Replace("yy", "x"), 16);
  EXPECT_EQ(text.Capacity(), 64u);
}

TEST(OStringReplaceTest, IsLinear) {
  OString text(std::string(2000000, 'x').c_str());
  EXPECT_EQ(text.Replace("x", "yy"), 2000000);
  EXPECT_EQ(text.Length(), 4000000);
}

}  // namespace
