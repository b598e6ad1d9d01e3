// Unit: what a command line does to a mask.
#include "logs/mask_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::kova::ctl::ChangedMask;
using ::kova::ctl::ExitCode;
using ::kova::ctl::MaskAction;
using ::kova::ctl::MaskWords;
using ::kova::ctl::ReadMaskWords;
using ::testing::HasSubstr;

constexpr wchar_t kServer[] = L"Corvane KOVA Server";

TEST(ReadMaskWordsTest, JoinsTheBitsOfAllWords) {
  const MaskWords words =
      ReadMaskWords(MaskAction::kSet, {L"error", L"LogFile", L"0x3", L"Error"});
  EXPECT_FALSE(words.failure);
  EXPECT_EQ(words.bits, 0x84000003u);
  EXPECT_EQ(ReadMaskWords(MaskAction::kAdd, {L"all"}).bits, 0xF000FFFFu);
}

TEST(ReadMaskWordsTest, RefusesAWordThatNamesNothing) {
  const MaskWords words =
      ReadMaskWords(MaskAction::kAdd, {L"Error", L"warnigns"});
  ASSERT_TRUE(words.failure);
  EXPECT_EQ(words.failure->code, ExitCode::kNotFound);
  EXPECT_THAT(words.failure->text,
              HasSubstr(L"no channel \"warnigns\"; did you mean Warning?"));
  const MaskWords hostile = ReadMaskWords(MaskAction::kAdd, {L"a\x1b[2J"});
  EXPECT_THAT(hostile.failure->text, HasSubstr(L"\"a\xFFFD[2J\""));
}

TEST(ReadMaskWordsTest, TakesNoneAloneAndOnlyToSet) {
  const MaskWords alone = ReadMaskWords(MaskAction::kSet, {L"None"});
  EXPECT_FALSE(alone.failure);
  EXPECT_EQ(alone.bits, 0u);
  EXPECT_EQ(ReadMaskWords(MaskAction::kSet, {L"none", L"Error"}).failure->code,
            ExitCode::kWrongUsage);
  EXPECT_TRUE(ReadMaskWords(MaskAction::kAdd, {L"none"}).failure);
  EXPECT_TRUE(ReadMaskWords(MaskAction::kRemove, {L"none"}).failure);
}

TEST(ChangedMaskTest, SetsAddsAndRemoves) {
  EXPECT_EQ(ChangedMask(MaskAction::kSet, 0xE0000000, 0x1), 0x1u);
  EXPECT_EQ(ChangedMask(MaskAction::kAdd, 0xE0000000, 0x1), 0xE0000001u);
  EXPECT_EQ(ChangedMask(MaskAction::kRemove, 0xE0000001, 0xA0000002),
            0x40000001u);
}

TEST(LogCommandTest, NamesOnlyForeignLoggers) {
  EXPECT_EQ(kova::ctl::SetCommand(kServer, 0xE0000000),
            L"kovactl log set 0xE0000000");
  EXPECT_EQ(kova::ctl::SetCommand(L"Demo Lib", 1),
            L"kovactl log set 0x00000001 --logger \"Demo Lib\"");
  EXPECT_EQ(kova::ctl::LogCommand(L"add", L"LogFile", kServer),
            L"kovactl log add LogFile");
}

}  // namespace
