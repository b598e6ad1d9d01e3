// Unit: foreign text and long lines on a screen.
#include "common/plain_text.h"

#include <gtest/gtest.h>

namespace {

using ::kova::ctl::Harmless;
using ::kova::ctl::HarmlessLine;
using ::kova::ctl::Wrapped;

TEST(Harmless, ReplacesEveryControlCharacter) {
  EXPECT_EQ(Harmless(L"a\x1b[2Jb", 0), L"a\xFFFD[2Jb");
  EXPECT_EQ(Harmless(std::wstring(L"\0\x7F\x80\x9F", 4), 0),
            std::wstring(4, L'\xFFFD'));
  EXPECT_EQ(Harmless(L" ~\xA0\xFC", 0), L" ~\xA0\xFC");
  EXPECT_EQ(Harmless(L"a\tb\rc", 0), L"a bc");
}

TEST(Harmless, IndentsFurtherLinesAndDropsTheLastEnds) {
  EXPECT_EQ(Harmless(L"a\r\nb\n\nc\r\n\r\n", 2), L"a\n  b\n  \n  c");
  EXPECT_EQ(Harmless(L"\r\n", 2), L"");
  EXPECT_EQ(Harmless(L"", 2), L"");
}

TEST(HarmlessLine, IsOneLineWhateverTheNameHolds) {
  EXPECT_EQ(HarmlessLine(L"a\r\nb\tc"),
            L"a\xFFFD\xFFFD"
            L"b c");
  EXPECT_EQ(HarmlessLine(std::wstring(L"a\0b", 3)),
            L"a\xFFFD"
            L"b");
}

TEST(Wrapped, BreaksAtBlanksBeforeColumn81) {
  const std::wstring word(9, L'x');
  std::wstring text = word;
  for (int i = 0; i < 7; ++i) text += L" " + word;
  ASSERT_EQ(text.size(), 79u);
  EXPECT_EQ(Wrapped(text, 0), text + L"\n");
  EXPECT_EQ(Wrapped(text, 1), L" " + text + L"\n");
  EXPECT_EQ(Wrapped(text, 2),
            L"  " + text.substr(0, 69) + L"\n  " + word + L"\n");
}

TEST(Wrapped, KeepsALongWordWhole) {
  const std::wstring path(100, L'p');
  EXPECT_EQ(Wrapped(path, 4), L"    " + path + L"\n");
  EXPECT_EQ(Wrapped(L"in " + path + L" it", 2),
            L"  in\n  " + path + L"\n  it\n");
}

TEST(Wrapped, HasNothingToSayAboutNothing) {
  EXPECT_EQ(Wrapped(L"", 4), L"");
  EXPECT_EQ(Wrapped(L"  ", 4), L"");
}

}  // namespace
