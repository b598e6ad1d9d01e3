// Patched: the array of strings; a conversion of Windows is replaced.
#include "text/o_string_array.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test/support/import_patch.h"

namespace {

std::vector<std::string> Texts(const OStringArray& strings) {
  std::vector<std::string> texts;
  for (int32_t i = 0; i < strings.Count(); ++i) {
    texts.push_back(strings[i].Narrow());
  }
  return texts;
}

std::vector<std::string> SplitTexts(const char* source, const char* separator) {
  OStringArray strings;
  strings.Split(source, separator);
  return Texts(strings);
}

using Pieces = std::vector<std::string>;

TEST(OStringArrayTest, GrowsByTheRuleOfTheArrays) {
  OStringArray strings;
  EXPECT_EQ(strings.Data(), nullptr);
  strings.SetSize(1);
  EXPECT_EQ(strings.Capacity(), 1);
  strings.SetSize(2);
  EXPECT_EQ(strings.Count(), 2);
  EXPECT_EQ(strings.Capacity(), 5);
  strings.SetGrowBy(10);
  strings.SetSize(6);
  EXPECT_EQ(strings.Capacity(), 15);
  strings.SetSize(-1);
  EXPECT_EQ(strings.Count(), 6);
}

TEST(OStringArrayTest, ReservesAnEighthWithinLimits) {
  OStringArray strings;
  strings.SetSize(800);
  strings.SetSize(801);
  EXPECT_EQ(strings.Capacity(), 900);
  OStringArray many;
  many.SetSize(16000);
  many.SetSize(16001);
  EXPECT_EQ(many.Capacity(), 17024);
}

TEST(OStringArrayTest, KeepsItsElementsWhenItGrows) {
  OStringArray strings;
  const OString text("kept");
  strings.SetAt(0, text);
  for (int32_t size = 2; size <= 2000; ++size) strings.SetSize(size);
  EXPECT_TRUE(strings[0].SharesRecordWith(text));
  EXPECT_TRUE(strings[1].IsEmpty());
  EXPECT_TRUE(strings[1999].IsEmpty());
}

TEST(OStringArrayTest, ReleasesTheElementsThatLeave) {
  OStringArray strings;
  strings.SetAt(0, "a");
  strings.SetAt(1, "b");
  const int32_t capacity = strings.Capacity();
  strings.SetSize(1);
  EXPECT_EQ(strings.Capacity(), capacity);
  strings.SetSize(2);
  EXPECT_EQ(Texts(strings), (Pieces{"a", ""}));
  strings.SetSize(0);
  EXPECT_EQ(strings.Data(), nullptr);
  EXPECT_EQ(strings.Capacity(), 0);
}

TEST(OStringArrayTest, SetAtTakesAReferenceAndGrowsWhereNeeded) {
  OStringArray strings;
  const OString text("x");
  strings.SetAt(3, text);
  EXPECT_EQ(Texts(strings), (Pieces{"", "", "", "x"}));
  EXPECT_TRUE(strings[3].SharesRecordWith(text));
  strings.SetAt(3, "y");
  EXPECT_EQ(strings.Count(), 4);
  EXPECT_STREQ(strings[3].Narrow(), "y");
  EXPECT_STREQ(text.Narrow(), "x");
}

TEST(OStringArraySplitTest, KeepsEmptyPieces) {
  EXPECT_EQ(SplitTexts("a,,b", ","), (Pieces{"a", "", "b"}));
  EXPECT_EQ(SplitTexts(",", ","), (Pieces{"", ""}));
  EXPECT_EQ(SplitTexts("a,", ","), (Pieces{"a", ""}));
  EXPECT_EQ(SplitTexts(",a", ","), (Pieces{"", "a"}));
  EXPECT_EQ(SplitTexts("", ","), Pieces{});
}

TEST(OStringArraySplitTest, TakesSeparatorsOfSeveralCharacters) {
  EXPECT_EQ(SplitTexts("a--b---c", "--"), (Pieces{"a", "b", "-c"}));
  EXPECT_EQ(SplitTexts("--", "---"), (Pieces{"--"}));
}

TEST(OStringArraySplitTest, SharesASourceWithoutSeparator) {
  OStringArray strings;
  const OString source("abc");
  strings.Split(source, ",");
  ASSERT_EQ(strings.Count(), 1);
  EXPECT_TRUE(strings[0].SharesRecordWith(source));
  strings.Split(source, "");
  ASSERT_EQ(strings.Count(), 1);
  EXPECT_TRUE(strings[0].SharesRecordWith(source));
  strings.Split(source, nullptr);
  EXPECT_EQ(Texts(strings), (Pieces{"abc"}));
}

TEST(OStringArraySplitTest, ReplacesTheContents) {
  OStringArray strings;
  strings.Split("a,b,c", ",");
  strings.Split("d", ",");
  EXPECT_EQ(Texts(strings), (Pieces{"d"}));
  strings.Split(OString(), ",");
  EXPECT_EQ(strings.Count(), 0);
  EXPECT_EQ(strings.Data(), nullptr);
}

TEST(OStringArraySplitTest, SplitsAnElementOfItsOwn) {
  OStringArray strings;
  strings.SetAt(0, "x;y");
  strings.Split(strings[0], ";");
  EXPECT_EQ(Texts(strings), (Pieces{"x", "y"}));
}

TEST(OStringArraySplitTest, SplitsWideTextIntoWidePieces) {
  OStringArray strings;
  strings.Split(OString(L"\u4E2D,\u6587"), ",");
  ASSERT_EQ(strings.Count(), 2);
  EXPECT_STREQ(strings[0].Wide(), L"\u4E2D");
  EXPECT_STREQ(strings[1].Wide(), L"\u6587");
  EXPECT_FALSE(strings[1].HasNarrow());
}

TEST(OStringArraySplitTest, GivesThePiecesTheCodePageOfTheSource) {
  OStringArray strings;
  strings.Split(OString::FromUtf8("\xE2\x82\xAC,,b"), ",");
  ASSERT_EQ(strings.Count(), 3);
  EXPECT_EQ(strings[0].CodePage(), 1208u);
  EXPECT_STREQ(strings[0].Narrow(), "\xE2\x82\xAC");
  EXPECT_EQ(strings[1].CodePage(), 1208u);
}

int WINAPI ConvertNothing(UINT, DWORD, const char*, int, wchar_t*, int) {
  return 0;
}

TEST(OStringArraySplitTest, ASeparatorThatDoesNotConvertIsNone) {
  const kova::test::ImportPatch<int WINAPI(UINT, DWORD, const char*, int,
                                           wchar_t*, int)>
      patch(nullptr, "MultiByteToWideChar", &ConvertNothing);
  OStringArray strings;
  const OString source = OString::FromUtf8("a,b");
  strings.Split(source, ",");
  ASSERT_EQ(strings.Count(), 1);
  EXPECT_TRUE(strings[0].SharesRecordWith(source));
}

TEST(OStringArraySplitTest, SplitsManyPieces) {
  constexpr int32_t kPieces = 200000;
  std::string source;
  for (int32_t i = 1; i < kPieces; ++i) source += "ab&";
  OStringArray strings;
  strings.Split(source.c_str(), "&");
  EXPECT_EQ(strings.Count(), kPieces);
  EXPECT_STREQ(strings[kPieces - 2].Narrow(), "ab");
  EXPECT_TRUE(strings[kPieces - 1].IsEmpty());
}

}  // namespace
