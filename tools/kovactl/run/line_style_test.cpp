// Unit: how log lines look.
#include "run/line_style.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using ::kova::ctl::StyleLine;
using ::kova::ctl::StyleNotice;

TEST(StyleLineTest, PutsTheChannelIntoAColumnOfItsOwn) {
  EXPECT_EQ(StyleLine(L"Error A::B: text", false), L"Error       A::B: text\n");
  EXPECT_EQ(StyleLine(L"Info A::B: text", false), L"Info        A::B: text\n");
  EXPECT_EQ(StyleLine(L"DetailInfo A::B: text", false),
            L"DetailInfo  A::B: text\n");
  EXPECT_EQ(StyleLine(L"DetailInfoP A::B: text", false),
            L"DetailInfoP A::B: text\n");
}

TEST(StyleLineTest, ColoursEachChannel) {
  EXPECT_EQ(StyleLine(L"Error x", true), L"\x1b[1;31mError\x1b[0m       x\n");
  EXPECT_EQ(StyleLine(L"Warning x", true), L"\x1b[33mWarning\x1b[0m     x\n");
  EXPECT_EQ(StyleLine(L"Info x", true), L"\x1b[32mInfo\x1b[0m        x\n");
  EXPECT_EQ(StyleLine(L"DetailInfo x", true),
            L"\x1b[36mDetailInfo\x1b[0m  x\n");
  for (wchar_t letter = L'A'; letter <= L'P'; ++letter) {
    const std::wstring channel = std::wstring(L"DetailInfo") + letter;
    EXPECT_EQ(StyleLine(channel + L" x", true),
              L"\x1b[90m" + channel + L"\x1b[0m x\n");
  }
}

TEST(StyleLineTest, ShowsALineWithoutAChannelAsItIs) {
  for (const bool color : {false, true}) {
    EXPECT_EQ(StyleLine(L"WinEventLogSink(...) - failed\n", color),
              L"WinEventLogSink(...) - failed\n");
    EXPECT_EQ(StyleLine(L"DetailInfoQ x", color), L"DetailInfoQ x\n");
    EXPECT_EQ(StyleLine(L"DetailInfoX x", color), L"DetailInfoX x\n");
    EXPECT_EQ(StyleLine(L"error x", color), L"error x\n");
    EXPECT_EQ(StyleLine(L"", color), L"\n");
  }
}

TEST(StyleLineTest, ManagesWithoutText) {
  EXPECT_EQ(StyleLine(L"Info", false), L"Info        \n");
  EXPECT_EQ(StyleLine(L"Info ", false), L"Info        \n");
  EXPECT_EQ(StyleLine(L" Info x", false), L" Info x\n");
}

TEST(StyleLineTest, IndentsFurtherLinesAndEndsWithOneLineEnd) {
  EXPECT_EQ(StyleLine(L"DetailInfo A: no \nClient Address: 1\r\n\n", false),
            L"DetailInfo  A: no \n            Client Address: 1\n");
}

TEST(StyleLineTest, TakesTheCommandsOutOfQuotedText) {
  EXPECT_EQ(StyleLine(L"Error a\x1b[2J\x07\x7f\x9b"
                      L"b\tc",
                      true),
            L"\x1b[1;31mError\x1b[0m       a\xFFFD[2J\xFFFD\xFFFD\xFFFD"
            L"b c\n");
  EXPECT_EQ(StyleLine(std::wstring(L"Info a\0b", 8), false),
            L"Info        a\xFFFD"
            L"b\n");
  EXPECT_EQ(StyleLine(L"Info \x00A0\x00E4", false),
            L"Info        \x00A0\x00E4\n");
}

TEST(StyleNoticeTest, SetsNoticesApart) {
  EXPECT_EQ(StyleNotice(L"Stopped.", false), L"Stopped.\n");
  EXPECT_EQ(StyleNotice(L"Stopped.", true), L"\x1b[1mStopped.\x1b[0m\n");
}

}  // namespace
