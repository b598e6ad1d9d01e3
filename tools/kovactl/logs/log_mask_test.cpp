// Unit: what masks mean, and the words for them.
#include "logs/log_mask.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/server_settings.h"

namespace {

using ::kova::ctl::LoggerMask;
using ::kova::ctl::MaskBits;
using ::kova::ctl::MaskText;
using ::kova::ctl::NearMaskName;
using ::kova::ctl::ParseMaskWord;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(MaskBitsTest, NamesEveryChannelAndBothSwitches) {
  const struct {
    const wchar_t* name;
    uint32_t bit;
  } kExpected[] = {
      {L"Error", 0x80000000},          {L"Warning", 0x40000000},
      {L"Info", 0x20000000},           {L"DetailInfo", 0x10000000},
      {L"DetailInfoA", 0x1},           {L"DetailInfoB", 0x2},
      {L"DetailInfoC", 0x4},           {L"DetailInfoD", 0x8},
      {L"DetailInfoE", 0x10},          {L"DetailInfoF", 0x20},
      {L"DetailInfoG", 0x40},          {L"DetailInfoH", 0x80},
      {L"DetailInfoI", 0x100},         {L"DetailInfoJ", 0x200},
      {L"DetailInfoK", 0x400},         {L"DetailInfoL", 0x800},
      {L"DetailInfoM", 0x1000},        {L"DetailInfoN", 0x2000},
      {L"DetailInfoO", 0x4000},        {L"DetailInfoP", 0x8000},
      {L"DebuggerOutput", 0x08000000}, {L"LogFile", 0x04000000},
  };
  ASSERT_EQ(MaskBits().size(), std::size(kExpected));
  for (size_t i = 0; i < std::size(kExpected); ++i) {
    EXPECT_EQ(MaskBits()[i].name, kExpected[i].name);
    EXPECT_EQ(MaskBits()[i].bit, kExpected[i].bit) << i;
    EXPECT_EQ(MaskBits()[i].isSwitch, i >= 20) << i;
  }
  EXPECT_EQ(kova::ctl::AllChannels(), 0xF000FFFFu);
}

TEST(MaskTextTest, NamesBitsAndShortensRuns) {
  EXPECT_EQ(MaskText(0), L"nothing");
  EXPECT_EQ(MaskText(0xE0000000), L"Error Warning Info");
  EXPECT_EQ(MaskText(0xFC00FFFF),
            L"Error Warning Info DetailInfo DetailInfoA-P DebuggerOutput "
            L"LogFile");
  EXPECT_EQ(MaskText(0x0000800B), L"DetailInfoA-B DetailInfoD DetailInfoP");
  EXPECT_EQ(MaskText(0x04008000), L"DetailInfoP LogFile");
  EXPECT_EQ(MaskText(0x83FF0000), L"Error 0x03FF0000");
}

TEST(MaskTextTest, WritesHexadecimalMasks) {
  EXPECT_EQ(kova::ctl::HexMask(0), L"0x00000000");
  EXPECT_EQ(kova::ctl::HexMask(0xE000ABCD), L"0xE000ABCD");
  EXPECT_EQ(kova::ctl::NamelessBits(0xFFFFFFFF), 0x03FF0000u);
  EXPECT_EQ(kova::ctl::NamelessBits(0xFC00FFFF), 0u);
}

TEST(MaskTextTest, ListsChannelsAndSwitchesApart) {
  EXPECT_THAT(kova::ctl::ChannelsOf(0x88000001),
              ElementsAre(L"Error", L"DetailInfoA"));
  EXPECT_THAT(kova::ctl::SwitchesOf(0x88000001),
              ElementsAre(L"DebuggerOutput"));
  EXPECT_THAT(kova::ctl::SwitchesOf(0xF3FFFFFF), IsEmpty());
}

TEST(ReachTest, SaysWhichSinksAChannelReaches) {
  const struct {
    uint32_t mask, eventLog, debugger, file;
  } kRows[] = {
      {0, 0, 0, 0},
      {0xE0000000, 0xE0000000, 0xC0000000, 0},
      {0xE8000001, 0xE0000001, 0xE0000001, 0},
      {0xE4000001, 0xE0000001, 0xC0000000, 0xE0000001},
      {0x0C000000, 0, 0, 0},
      {0xFFFFFFFF, 0xF000FFFF, 0xF000FFFF, 0xF000FFFF},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(kova::ctl::ReachingEventLog(row.mask), row.eventLog);
    EXPECT_EQ(kova::ctl::ReachingDebugger(row.mask), row.debugger);
    EXPECT_EQ(kova::ctl::ReachingFile(row.mask), row.file);
  }
}

TEST(ParseMaskWordTest, TakesNamesWordsAndNumbers) {
  EXPECT_EQ(ParseMaskWord(L"detailinfop"), 0x8000u);
  EXPECT_EQ(ParseMaskWord(L"LOGFILE"), 0x04000000u);
  EXPECT_EQ(ParseMaskWord(L"All"), 0xF000FFFFu);
  EXPECT_EQ(ParseMaskWord(L"none"), 0u);
  EXPECT_EQ(ParseMaskWord(L"default"), 0xE0000000u);
  EXPECT_EQ(ParseMaskWord(L"0x0"), 0u);
  EXPECT_EQ(ParseMaskWord(L"0XfFfFfFfF"), 0xFFFFFFFFu);
}

TEST(ParseMaskWordTest, RefusesEverythingElse) {
  for (const wchar_t* word :
       {L"", L"0x", L"0x123456789", L"0xg", L"12", L"DetailInfoQ", L"Detail",
        L"Error ", L"-1", L"0x-1"}) {
    EXPECT_EQ(ParseMaskWord(word), std::nullopt) << word;
  }
  EXPECT_EQ(ParseMaskWord(std::wstring_view(L"Error\0", 6)), std::nullopt);
}

TEST(NearMaskNameTest, FindsWhatWasMeantAndNothingElse) {
  EXPECT_EQ(NearMaskName(L"warnings"), L"Warning");
  EXPECT_EQ(NearMaskName(L"eror"), L"Error");
  EXPECT_EQ(NearMaskName(L"DetailInfoQ"), L"DetailInfo");
  EXPECT_EQ(NearMaskName(L"debugoutput"), L"DebuggerOutput");
  EXPECT_EQ(NearMaskName(L"detail"), L"DetailInfo");
  for (const wchar_t* const other :
       {L"", L"x", L"one", L"nome", L"al", L"defaul", L"zebra", L"0xg"}) {
    EXPECT_EQ(NearMaskName(other), L"") << other;
  }
}

TEST(LoggerMaskTest, ReadsValuesAsLoggersDo) {
  LoggerMask logger;
  EXPECT_EQ(logger.Mask(), std::nullopt);
  logger.value = {true, REG_DWORD, {1, 0, 0, 0x80}};
  EXPECT_EQ(logger.Mask(), 0x80000001u);
  EXPECT_TRUE(logger.IsWellFormed());
  logger.value.type = REG_BINARY;
  EXPECT_EQ(logger.Mask(), 0x80000001u);
  EXPECT_FALSE(logger.IsWellFormed());
  logger.value.data = {7};
  EXPECT_EQ(logger.Mask(), 7u);
  logger.value.data = {};
  EXPECT_EQ(logger.Mask(), 0u);
  logger.value.data = {1, 2, 3, 4, 5};
  EXPECT_EQ(logger.Mask(), std::nullopt);
}

}  // namespace
