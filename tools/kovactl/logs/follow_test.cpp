// Unit: which debugger lines are the server's, how they look, and what a shared
// buffer holds.
#include "logs/follow.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using ::kova::ctl::DebugLine;
using ::kova::ctl::FollowJson;
using ::kova::ctl::FollowText;
using ::kova::ctl::IsServerLine;
using ::kova::ctl::LineFilter;
using ::kova::ctl::ParseDebugBuffer;

const SYSTEMTIME kNow = {2026, 11, 6, 21, 4, 5, 6, 7};

TEST(IsServerLineTest, KnowsTheServersLines) {
  EXPECT_TRUE(IsServerLine(L"Info WebServerBase::Run: text"));
  EXPECT_TRUE(IsServerLine(L"Error _StartKOVAServer: "));
  EXPECT_TRUE(IsServerLine(L"DetailInfoP X::Y: text"));
  EXPECT_TRUE(IsServerLine(
      L"WinEventLogSink(...) - RegCreateKeyEx(...) failed with error 5\n"));
  EXPECT_TRUE(
      IsServerLine(L"Logger::PopulateEventSourceRegKeys  Cannot open ..."));
}

TEST(IsServerLineTest, KnowsOtherLines) {
  for (const wchar_t* line :
       {L"", L"Info", L"Info ", L"Info : text", L"Info text", L"Error: text",
        L" X::Y: text", L"info X::Y: text", L"DetailInfoQ X::Y: text",
        L"LogFile X::Y: text", L"fixme:X::Y: text"}) {
    EXPECT_FALSE(IsServerLine(line)) << line;
  }
}

TEST(LineFilterTest, TakesTheServersLinesOfOneProcessOrOfAll) {
  const DebugLine server{7, L"Info A::B: c", false};
  const DebugLine other{8, L"hello", false};
  EXPECT_TRUE(LineFilter{}.Takes(server));
  EXPECT_FALSE(LineFilter{}.Takes(other));
  EXPECT_TRUE((LineFilter{std::nullopt, true}.Takes(other)));
  EXPECT_FALSE((LineFilter{8u, false}.Takes(server)));
  EXPECT_FALSE((LineFilter{8u, false}.Takes(other)));
  EXPECT_TRUE((LineFilter{8u, true}.Takes(other)));
}

TEST(FollowTextTest, PutsTimeAndProcessInFront) {
  EXPECT_EQ(FollowText({324, L"Info A::B: c", false}, kNow, false),
            L"04:05:06.007   324 Info        A::B: c\n");
  EXPECT_EQ(FollowText({1234567, L"hello\n", false}, kNow, false),
            L"04:05:06.007 1234567 hello\n");
  EXPECT_EQ(FollowText({324, L"Info A::B: c", true}, kNow, true),
            L"04:05:06.007   324 \x1b[32mInfo\x1b[0m        A::B: c [cut "
            L"here]\n");
}

TEST(FollowTextTest, KeepsFurtherLinesBelowAndHarmless) {
  EXPECT_EQ(FollowText({3, L"Error A::B: c\n    d\x1b[2J", false}, kNow, false),
            L"04:05:06.007     3 Error       A::B: c\n" +
                std::wstring(31, L' ') + L"    d\xFFFD[2J\n");
}

TEST(FollowJsonTest, IsOneLine) {
  EXPECT_EQ(FollowJson({3, L"Error A::B: c\nd", false}, kNow),
            L"{\"time\":\"2026-11-21T04:05:06.007Z\",\"processId\":3,"
            L"\"channel\":\"Error\",\"text\":\"Error A::B: c\\nd\","
            L"\"cut\":false}\n");
  EXPECT_NE(FollowJson({3, L"hello", true}, kNow)
                .find(L"\"channel\":null,\"text\":\"hello\",\"cut\":true"),
            std::wstring::npos);
}

DebugLine Parse(std::vector<uint8_t> bytes) {
  return ParseDebugBuffer(bytes.data(), bytes.size());
}

TEST(ParseDebugBufferTest, ReadsProcessAndText) {
  const DebugLine line = Parse({0x44, 1, 0, 0, 'a', 0x80, 0, 'x', 'y'});
  EXPECT_EQ(line.processId, 0x144u);
  EXPECT_EQ(line.text, L"a\x20AC");
  EXPECT_FALSE(line.isCut);
}

TEST(ParseDebugBufferTest, BelievesNoWriter) {
  EXPECT_EQ(Parse({1, 0, 0}).processId, 0u);
  EXPECT_EQ(Parse({1, 0, 0, 0}).text, L"");
  const DebugLine full = Parse({1, 0, 0, 0, 'a', 'b', 'c'});
  EXPECT_EQ(full.text, L"abc");
  EXPECT_TRUE(full.isCut);
  EXPECT_TRUE(Parse({1, 0, 0, 0, 'a', 'b', 0}).isCut);
  EXPECT_FALSE(Parse({1, 0, 0, 0, 'a', 0, 0}).isCut);
}

}  // namespace
