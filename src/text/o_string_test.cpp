// Unit: making texts, their forms, capacity, sharing and code pages.
#include "text/o_string.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "test/support/import_patch.h"

namespace {

TEST(OStringTest, NullIsTheEmptyTextOfCodePageZero) {
  const OString text;
  EXPECT_STREQ(text.Narrow(), "");
  EXPECT_STREQ(text.Wide(), L"");
  EXPECT_EQ(text.Length(), 0);
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_EQ(text.CodePage(), 0u);
  EXPECT_EQ(text.Capacity(), 0u);
  EXPECT_FALSE(text.SharesRecordWith(OString()));
}

TEST(OStringTest, IsMadeFromTextOfEitherForm) {
  EXPECT_STREQ(OString("abc").Narrow(), "abc");
  EXPECT_STREQ(OString(L"abc").Wide(), L"abc");
  EXPECT_FALSE(OString("abc").HasWide());
  EXPECT_FALSE(OString(L"abc").HasNarrow());
  EXPECT_STREQ(OString('x').Narrow(), "x");
  EXPECT_EQ(OString('x').Capacity(), 32u);
}

TEST(OStringTest, StopsAtTheBoundAndAtAZero) {
  EXPECT_STREQ(OString("abcdef", 3).Narrow(), "abc");
  EXPECT_STREQ(OString(L"abcdef", 3).Wide(), L"abc");
  EXPECT_STREQ(OString("ab\0cd", 5).Narrow(), "ab");
  EXPECT_STREQ(OString(L"ab\0cd", 5).Wide(), L"ab");
  EXPECT_EQ(OString("ab\0cd", 5).Length(), 2);
  EXPECT_TRUE(OString("abc", 0).IsEmpty());
  EXPECT_STREQ(OString("abc", 3).Narrow(), "abc");
}

TEST(OStringTest, ReadsNothingBehindAZeroWhateverTheBound) {
  const auto narrow = std::make_unique<char[]>(3);
  narrow[0] = narrow[1] = 'x';
  EXPECT_STREQ(OString(narrow.get(), 1000).Narrow(), "xx");
  const auto wide = std::make_unique<wchar_t[]>(3);
  wide[0] = wide[1] = L'x';
  EXPECT_STREQ(OString(wide.get(), 1000).Wide(), L"xx");
}

TEST(OStringTest, TakesEmptyAndNullTextForEmpty) {
  const char* const noNarrow = nullptr;
  const wchar_t* const noWide = nullptr;
  for (const OString& text :
       {OString(""), OString(L""), OString(noNarrow), OString(noWide),
        OString(noNarrow, 5), OString(noWide, 5), OString('\0')}) {
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_STREQ(text.Narrow(), "");
    EXPECT_STREQ(text.Wide(), L"");
    EXPECT_EQ(text.Capacity(), 32u);
  }
}

TEST(OStringTest, WritesNumbersInDecimal) {
  EXPECT_STREQ(OString::Decimal(0).Narrow(), "0");
  EXPECT_STREQ(OString::Decimal(5130).Narrow(), "5130");
  EXPECT_STREQ(OString::Decimal(4294967295u).Narrow(), "4294967295");
  EXPECT_FALSE(OString::Decimal(7).HasWide());
}

TEST(OStringTest, WritesNumbersAsAllTheirHexadecimalDigits) {
  EXPECT_STREQ(OString::Hex(uint32_t{0x1F4}).Narrow(), "000001F4");
  EXPECT_STREQ(OString::Hex(uint32_t{0}).Narrow(), "00000000");
  EXPECT_STREQ(OString::Hex(uint32_t{0xFFFFFFFF}).Narrow(), "FFFFFFFF");
  EXPECT_STREQ(OString::Hex(uint64_t{0x1F4}).Narrow(), "00000000000001F4");
  EXPECT_STREQ(OString::Hex(uint64_t{0x0123456789ABCDEF}).Narrow(),
               "0123456789ABCDEF");
}

TEST(OStringCapacityTest, IsTheLengthPlus32InStepsOf32) {
  EXPECT_EQ(OString(std::string(1, 'x').c_str()).Capacity(), 32u);
  EXPECT_EQ(OString(std::string(31, 'x').c_str()).Capacity(), 32u);
  EXPECT_EQ(OString(std::string(32, 'x').c_str()).Capacity(), 64u);
  EXPECT_EQ(OString(std::string(63, 'x').c_str()).Capacity(), 64u);
  EXPECT_EQ(OString(std::wstring(31, L'x').c_str()).Capacity(), 32u);
  EXPECT_EQ(OString(std::wstring(32, L'x').c_str()).Capacity(), 64u);
}

TEST(OStringCapacityTest, StaysWhereTextFits) {
  OString text(std::string(100, 'x').c_str());
  EXPECT_EQ(text.Capacity(), 128u);
  text = "short";
  EXPECT_EQ(text.Capacity(), 128u);
  text = "";
  EXPECT_EQ(text.Capacity(), 128u);
  const OString other(text);
  text = "own";
  EXPECT_EQ(text.Capacity(), 128u);
  text = std::wstring(128, L'x').c_str();
  EXPECT_EQ(text.Capacity(), 160u);
}

TEST(OStringAssignTest, ClearsTheOtherForm) {
  OString text("abc");
  EXPECT_STREQ(text.Wide(), L"abc");
  text = "de";
  EXPECT_FALSE(text.HasWide());
  EXPECT_STREQ(text.Wide(), L"de");
  text = L"fgh";
  EXPECT_FALSE(text.HasNarrow());
  EXPECT_STREQ(text.Narrow(), "fgh");
}

TEST(OStringAssignTest, KeepsTheCodePageAndTheSharedRecord) {
  OString text = OString::FromUtf8("abc");
  const OString other(text);
  text = "\xC3\xA9";
  EXPECT_EQ(text.CodePage(), 1208u);
  EXPECT_STREQ(text.Wide(), L"\u00E9");
  EXPECT_STREQ(other.Narrow(), "abc");
  EXPECT_FALSE(text.SharesRecordWith(other));
}

TEST(OStringAssignTest, TakesTextFromWithinItself) {
  OString text("abcdef");
  text = text.Narrow() + 2;
  EXPECT_STREQ(text.Narrow(), "cdef");
  text.Assign(text.Narrow() + 1, 2);
  EXPECT_STREQ(text.Narrow(), "de");
  OString wide(std::wstring(31, L'\u20AC').c_str());
  wide.SetCodePage(1208);
  wide = wide.Narrow();
  EXPECT_EQ(wide.NarrowView().size(), 93u);
  EXPECT_EQ(wide.Length(), 31);
}

TEST(OStringFormsTest, KeepsBothFormsOnceAskedFor) {
  const OString narrow("abc");
  const wchar_t* const wide = narrow.Wide();
  EXPECT_TRUE(narrow.HasNarrow());
  EXPECT_TRUE(narrow.HasWide());
  EXPECT_EQ(narrow.Wide(), wide);
  const OString other(L"\u20AC");
  EXPECT_STREQ(other.Narrow(), "\x80");
  EXPECT_TRUE(other.HasWide());
  EXPECT_EQ(other.Narrow(), other.Narrow());
}

TEST(OStringFormsTest, AreSharedByAllHandles) {
  const OString text("abc");
  const OString other(text);
  EXPECT_TRUE(text.SharesRecordWith(other));
  EXPECT_EQ(text.Wide(), other.Wide());
  EXPECT_EQ(text.Narrow(), other.Narrow());
}

TEST(OStringFormsTest, PreferWideByOriginAndCodePageOnly) {
  OString text("abc");
  EXPECT_FALSE(text.PrefersWide());
  EXPECT_STREQ(text.Wide(), L"abc");
  EXPECT_FALSE(text.PrefersWide());
  OString wide(L"abc");
  EXPECT_TRUE(wide.PrefersWide());
  EXPECT_STREQ(wide.Narrow(), "abc");
  EXPECT_TRUE(wide.PrefersWide());
  EXPECT_TRUE(OString::FromUtf8("abc").PrefersWide());
  text.SetCodePage(64999);
  EXPECT_TRUE(text.PrefersWide());
}

UINT WINAPI JapaneseAcp() { return 932; }

TEST(OStringFormsTest, PreferWideUnderAMultiByteAnsiCodePage) {
  const kova::test::ImportPatch<decltype(GetACP)> patch(nullptr, "GetACP",
                                                        &JapaneseAcp);
  EXPECT_TRUE(OString("abc").PrefersWide());
  EXPECT_TRUE(OString().PrefersWide());
  OString text("abc");
  text.SetCodePage(1252);
  text = "abc";
  EXPECT_FALSE(text.PrefersWide());
}

TEST(OStringLengthTest, CountsInThePreferredForm) {
  EXPECT_EQ(OString("abc").Length(), 3);
  EXPECT_EQ(OString(L"\u20AC").Length(), 1);
  const OString utf8 = OString::FromUtf8("\xE2\x82\xAC\xC3\xA9");
  EXPECT_EQ(utf8.Length(), 2);
  EXPECT_EQ(utf8.NarrowView().size(), 5u);
}

TEST(OStringCodePageTest, Utf8EncodesEachUnitOnItsOwn) {
  OString text;
  text.SetCodePage(1208);
  text = L"\u20AC";
  EXPECT_STREQ(text.Narrow(), "\xE2\x82\xAC");
  const wchar_t pair[] = {wchar_t{0xD83D}, wchar_t{0xDE00}, 0};
  text = pair;
  EXPECT_STREQ(text.Narrow(), "\xED\xA0\xBD\xED\xB8\x80");
  const OString longest(std::wstring(1000, L'\uFFFF').c_str());
  OString tagged(longest);
  tagged.SetCodePage(1208);
  EXPECT_EQ(tagged.NarrowView().size(), 3000u);
}

// Windows' own UTF-8, in which a euro sign takes three bytes.
TEST(OStringCodePageTest, WindowsCodePagesHaveTwoBytesForACharacter) {
  OString text;
  text.SetCodePage(65001);
  text = std::wstring(21, L'\u20AC').c_str();
  EXPECT_EQ(text.NarrowView().size(), 63u);
  text = std::wstring(22, L'\u20AC').c_str();
  EXPECT_EQ(text.Capacity(), 32u);
  EXPECT_STREQ(text.Narrow(), "");
  EXPECT_EQ(text.Length(), 22);
}

TEST(OStringCodePageTest, ReadsNarrowTextByTheOldCodePage) {
  OString text("\xE9");
  text.SetCodePage(1208);
  EXPECT_FALSE(text.HasNarrow());
  EXPECT_STREQ(text.Wide(), L"\u00E9");
  EXPECT_STREQ(text.Narrow(), "\xC3\xA9");
  text.SetCodePage(64999);
  EXPECT_STREQ(text.Narrow(), "\xE9");
}

TEST(OStringCodePageTest, KeepsWideTextThatIsThere) {
  OString text(L"\u20AC");
  EXPECT_STREQ(text.Narrow(), "\x80");
  text.SetCodePage(1208);
  EXPECT_FALSE(text.HasNarrow());
  EXPECT_STREQ(text.Narrow(), "\xE2\x82\xAC");
}

TEST(OStringCodePageTest, LeavesASharedRecordAlone) {
  OString text("abc");
  const OString other(text);
  text.SetCodePage(0);
  EXPECT_TRUE(text.SharesRecordWith(other));
  text.SetCodePage(1208);
  EXPECT_FALSE(text.SharesRecordWith(other));
  EXPECT_EQ(other.CodePage(), 0u);
  EXPECT_TRUE(other.HasNarrow());
  OString null;
  null.SetCodePage(1208);
  EXPECT_EQ(null.CodePage(), 1208u);
  EXPECT_EQ(null.Capacity(), 0u);
}

TEST(OStringCodePageTest, CutUtf8TextHasNoWideForm) {
  const OString text = OString::FromUtf8("\xE2\x82");
  EXPECT_STREQ(text.Wide(), L"");
  EXPECT_FALSE(text.IsEmpty());
  EXPECT_EQ(text.Length(), 0);
  EXPECT_STREQ(text.Narrow(), "\xE2\x82");
}

TEST(OStringMakeUniqueTest, ClonesWhatIsShared) {
  OString text("abc");
  EXPECT_STREQ(text.Wide(), L"abc");
  const OString other(text);
  text.MakeUnique();
  EXPECT_FALSE(text.SharesRecordWith(other));
  EXPECT_TRUE(text.HasNarrow());
  EXPECT_TRUE(text.HasWide());
  EXPECT_EQ(text.Capacity(), other.Capacity());
  EXPECT_STREQ(text.Narrow(), "abc");
}

TEST(OStringMakeUniqueTest, KeepsItsOwnRecordAndMakesOneForNull) {
  OString text("abc");
  const char* const before = text.Narrow();
  text.MakeUnique();
  EXPECT_EQ(text.Narrow(), before);
  OString null;
  null.MakeUnique();
  EXPECT_EQ(null.Capacity(), 0u);
  EXPECT_TRUE(null.SharesRecordWith(OString(null)));
}

TEST(OStringHandleTest, MovesWithoutTouchingTheRecord) {
  OString text("abc");
  const char* const before = text.Narrow();
  OString moved(std::move(text));
  EXPECT_EQ(moved.Narrow(), before);
  OString target("old");
  target = std::move(moved);
  EXPECT_EQ(target.Narrow(), before);
  OString& self = target;
  target = self;
  EXPECT_EQ(target.Narrow(), before);
}

}  // namespace
