// Unit: what a command line does to a mask, and how masks are shown.
#include "logs/mask_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logs/text_width.h"

namespace {

using ::kova::ctl::ChangedMask;
using ::kova::ctl::ExitCode;
using ::kova::ctl::LoggerMask;
using ::kova::ctl::LoggersJson;
using ::kova::ctl::LoggersText;
using ::kova::ctl::LoggerText;
using ::kova::ctl::MaskAction;
using ::kova::ctl::MaskUpdate;
using ::kova::ctl::MaskWords;
using ::kova::ctl::ReadMaskWords;
using ::kova::ctl::UndoCommand;
using ::kova::ctl::UpdateJson;
using ::kova::ctl::UpdateText;
using ::kova::ctl::ValueState;
using ::kova::ctl::test::WidestLine;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr wchar_t kServer[] = L"Corvane KOVA Server";

LoggerMask Logger(const wchar_t* name, uint32_t mask) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&mask);
  return {name, {true, REG_DWORD, {bytes, bytes + sizeof(mask)}}};
}

TEST(LoggerTextTest, ShowsWhereChannelsGo) {
  EXPECT_EQ(LoggerText(Logger(kServer, 0xE0000000)),
            L"Corvane KOVA Server: 0xE0000000 (the default)\n"
            L"  Event log       Error Warning Info\n"
            L"  Debugger output Error Warning (DebuggerOutput is off)\n"
            L"  Log file        nothing (LogFile is off)\n");
  EXPECT_EQ(LoggerText(Logger(L"Demo", 0x88000000)),
            L"Demo: 0x88000000\n"
            L"  Event log       Error\n"
            L"  Debugger output Error\n"
            L"  Log file        nothing (LogFile is off)\n");
}

TEST(LoggerTextTest, TellsTheWaysOfTheFile) {
  const std::wstring text = LoggerText(Logger(L"no such file", 0x84000000));
  EXPECT_THAT(text, HasSubstr(L"Log file        Error -> C:\\Log Files\\no "
                              L"such file.txt\n"));
  EXPECT_THAT(text, HasSubstr(L"The file is written once"));
  EXPECT_THAT(LoggerText(Logger(L"x", 0x04000000)),
              Not(HasSubstr(L"written once")));
}

TEST(LoggerTextTest, StaysWithin80Columns) {
  EXPECT_LE(WidestLine(LoggerText(Logger(kServer, 0xFFFFFFFF))), 80u);
  const std::wstring odd = LoggerText(Logger(kServer, 0xF800A955));
  EXPECT_LE(WidestLine(odd), 80u);
  EXPECT_THAT(odd, HasSubstr(L"DetailInfoA DetailInfoC"));
  EXPECT_LE(WidestLine(UpdateText(
                {Logger(kServer, 0xF800A955), Logger(kServer, 0xFFFFFFFF)})),
            80u);
}

TEST(LoggerTextTest, ShowsOddValuesForWhatTheyAre) {
  LoggerMask logger{L"Demo", {true, REG_SZ, {1, 0}}};
  EXPECT_THAT(LoggerText(logger),
              HasSubstr(L"a value of type 1 and 2 bytes, where loggers"));
  logger.value.data.resize(12);
  EXPECT_THAT(LoggerText(logger), HasSubstr(L"Demo: unknown\n"));
  EXPECT_THAT(LoggerText(logger), HasSubstr(L"keeps its mask and writes"));
  EXPECT_THAT(LoggerText(Logger(L"a\x1b[2J\n", 0)), HasSubstr(L"a\xFFFD[2J"));
  EXPECT_THAT(LoggerText(Logger(L"x", 0x00010000)),
              HasSubstr(L"Unused bits     0x00010000\n"));
}

TEST(LoggersTextTest, SeparatesLoggersAndSaysThatThereAreNone) {
  const std::wstring both = LoggersText({Logger(L"One", 0), Logger(L"Two", 0)});
  EXPECT_THAT(both, HasSubstr(L"One: 0x00000000\n"));
  EXPECT_THAT(both, HasSubstr(L"\n\nTwo: 0x00000000\n"));
  EXPECT_THAT(LoggersText({}), HasSubstr(L"No logger has a mask yet."));
}

TEST(UpdateTextTest, TellsBeforeNowAndTheWayBack) {
  EXPECT_EQ(
      UpdateText({Logger(kServer, 0xE0000000), Logger(kServer, 0x88000001)}),
      L"Corvane KOVA Server\n"
      L"  Before          0xE0000000 Error Warning Info\n"
      L"  Now             0x88000001 Error DetailInfoA DebuggerOutput\n"
      L"  Event log       Error DetailInfoA\n"
      L"  Debugger output Error DetailInfoA\n"
      L"  Log file        nothing (LogFile is off)\n"
      L"  Takes effect    within 5000 ms in a host that runs, else when "
      L"it starts\n"
      L"  Undo with:      kovactl log set 0xE0000000\n");
}

TEST(UpdateTextTest, KnowsWhatTheWayBackIs) {
  const MaskUpdate fresh = {{kServer, {}}, Logger(kServer, 1)};
  EXPECT_EQ(UndoCommand(fresh), L"kovactl log set 0xE0000000");
  EXPECT_THAT(UpdateText(fresh), HasSubstr(L"  Before          no value\n"));
  const LoggerMask now = Logger(L"Demo", 1);
  const MaskUpdate other = {Logger(L"Demo", 5), now};
  EXPECT_EQ(UndoCommand(other),
            L"kovactl log set 0x00000005 --logger \"Demo\"");
  const ValueState longer{true, REG_BINARY, {1, 2, 3, 4, 5}};
  EXPECT_EQ(UndoCommand({{L"Demo", longer}, now}),
            L"kovactl log set --raw REG_BINARY:0102030405 --logger \"Demo\"");
  const ValueState text{true, REG_SZ, {'7', 0}};
  EXPECT_EQ(UndoCommand({{kServer, text}, now}),
            L"kovactl log set --raw REG_SZ:3700");
  const ValueState large{true, REG_SZ, std::vector<uint8_t>(2001)};
  EXPECT_EQ(UndoCommand({{L"Demo", large}, now}), std::nullopt);
  EXPECT_EQ(UpdateJson({{L"Demo", large}, now})["undo"], nullptr);
}

TEST(LoggersJsonTest, SaysTheSameToPrograms) {
  const auto json = LoggersJson({Logger(kServer, 0xC4000000)});
  EXPECT_EQ(json["key"],
            "HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane Tessaly\\Drivers\\"
            "DebugLogMasks");
  const auto& logger = json["loggers"][0];
  EXPECT_EQ(logger["name"], "Corvane KOVA Server");
  EXPECT_EQ(logger["mask"], "0xC4000000");
  EXPECT_EQ(logger["channels"].dump(), "[\"Error\",\"Warning\"]");
  EXPECT_EQ(logger["switches"].dump(), "[\"LogFile\"]");
  EXPECT_EQ(logger["reaches"]["logFile"].dump(), "[\"Error\",\"Warning\"]");
  EXPECT_EQ(logger["file"], "C:\\Log Files\\Corvane KOVA Server.txt");
  EXPECT_TRUE(LoggersJson({})["loggers"].empty());
}

TEST(UpdateJsonTest, SaysTheSameToPrograms) {
  const auto json =
      UpdateJson({Logger(L"Demo", 0), Logger(L"Demo", 0x80000000)});
  EXPECT_EQ(json["before"], "0x00000000");
  EXPECT_EQ(json["now"], "0x80000000");
  EXPECT_EQ(json["takesEffectWithinMs"], 5000);
  EXPECT_EQ(json["undo"], "kovactl log set 0x00000000 --logger \"Demo\"");
}

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
  // No alias that acts on many channels is ever suggested.
  const MaskWords odd = ReadMaskWords(MaskAction::kSet, {L"non"});
  EXPECT_THAT(odd.failure->text, Not(HasSubstr(L"did you mean")));
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
