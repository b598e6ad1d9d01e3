// Whole: kovactl.exe as a child: the verbs log and dumps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "base/handles.h"
#include "common/program_run.h"
#include "common/registry_value.h"
#include "common/utf8.h"
#include "log/logger.h"
#include "log/server_logger.h"
#include "logs/debug_buffer.h"
#include "logs/log_mask.h"
#include "logs/sample_dump.h"
#include "logs/scratch_folder.h"

namespace {

using ::kova::kServerLoggerName;
using ::kova::ctl::DebugBuffer;
using ::kova::ctl::DebugScope;
using ::kova::ctl::FindLogger;
using ::kova::ctl::LoggerMask;
using ::kova::ctl::ReadLoggerMasks;
using ::kova::ctl::ToUtf8;
using ::kova::ctl::ValueState;
using ::kova::ctl::test::DumpParts;
using ::kova::ctl::test::ExpectRefusal;
using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::kova::ctl::test::ScratchFolder;
using ::kova::ctl::test::SmallDump;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// No masks but those that a test makes.
class LogVerbTest : public ::testing::Test {
 protected:
  LogVerbTest() { ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kova::kMaskKey); }
  ~LogVerbTest() override {
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kova::kMaskKey);
  }

  static void Put(const wchar_t* name, const ValueState& value) {
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kova::kMaskKey, name, value.type,
                      value.data.data(), static_cast<DWORD>(value.data.size()));
  }
  static ValueState Value(const wchar_t* name) {
    std::vector<LoggerMask> loggers;
    EXPECT_EQ(ReadLoggerMasks(loggers), ERROR_SUCCESS);
    const LoggerMask* const logger = FindLogger(loggers, name);
    return logger == nullptr ? ValueState() : logger->value;
  }
};

TEST_F(LogVerbTest, WritesWhatLoggersRead) {
  const ProgramResult result = RunKovactl(L"log add DetailInfoA logfile");
  EXPECT_EQ(result.exitCode, 0u);
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(result.output, HasSubstr("  Before          no value\n"));
  EXPECT_THAT(result.output,
              HasSubstr("  Undo with:      kovactl log set 0xE0000000\n"));
  EXPECT_EQ(Value(kServerLoggerName),
            (ValueState{true, REG_DWORD, {1, 0, 0, 0xE4}}));
  EXPECT_EQ(RunKovactl(L"log remove Info LogFile").exitCode, 0u);
  EXPECT_EQ(Value(kServerLoggerName),
            (ValueState{true, REG_DWORD, {1, 0, 0, 0xC0}}));
  EXPECT_EQ(RunKovactl(L"log set none").exitCode, 0u);
  EXPECT_EQ(Value(kServerLoggerName),
            (ValueState{true, REG_DWORD, {0, 0, 0, 0}}));
}

TEST_F(LogVerbTest, ChangesAnotherLoggerWhateverTheCase) {
  Put(L"Demo Lib", {true, REG_BINARY, {2}});
  const ProgramResult result =
      RunKovactl(L"log add Error --logger \"demo LIB\"");
  EXPECT_EQ(result.exitCode, 0u);
  EXPECT_THAT(result.output, StartsWith("Demo Lib\n"));
  EXPECT_THAT(result.output, HasSubstr("kovactl log set --raw REG_BINARY:02 "
                                       "--logger \"Demo Lib\"\n"));
  EXPECT_EQ(Value(L"Demo Lib"), (ValueState{true, REG_DWORD, {2, 0, 0, 0x80}}));
  EXPECT_FALSE(Value(kServerLoggerName).present);
}

TEST_F(LogVerbTest, ShowsEveryLogger) {
  EXPECT_THAT(RunKovactl(L"log show").output,
              HasSubstr("No logger has a mask"));
  Put(L"Demo Lib", {true, REG_DWORD, {0, 0, 0, 0x80}});
  Put(kServerLoggerName, {true, REG_DWORD, {0, 0, 0, 0xE0}});
  const ProgramResult all = RunKovactl(L"log show");
  EXPECT_THAT(all.output, HasSubstr("Demo Lib: 0x80000000\n"));
  EXPECT_THAT(all.output,
              HasSubstr("Corvane KOVA Server: 0xE0000000 (the default)\n"));
  EXPECT_THAT(RunKovactl(L"log show --logger \"demo lib\"").output,
              Not(HasSubstr("KOVA")));
  EXPECT_THAT(RunKovactl(L"log show --json").output,
              HasSubstr("\"name\": \"Demo Lib\""));
}

TEST_F(LogVerbTest, RefusesWhatIsNotThere) {
  const ProgramResult channel = RunKovactl(L"log add Detail Infos");
  ExpectRefusal(channel, 9, "there is no channel \"Detail\"; did you mean");
  const ProgramResult logger = RunKovactl(L"log set all --logger kova");
  ExpectRefusal(logger, 9, "did you mean \"Corvane KOVA Server\"?");
  EXPECT_EQ(RunKovactl(L"log show --logger x").exitCode, 9u);
  EXPECT_EQ(RunKovactl(L"log").exitCode, 2u);
  EXPECT_EQ(RunKovactl(L"log set").exitCode, 2u);
  EXPECT_EQ(RunKovactl(L"log set none Error").exitCode, 2u);
  EXPECT_EQ(RunKovactl(L"log follow --seconds -1").exitCode, 2u);
  EXPECT_FALSE(Value(kServerLoggerName).present);
}

TEST_F(LogVerbTest, KeepsAValueThatItCannotRead) {
  const ValueState longer{true, REG_BINARY, {1, 2, 3, 4, 5}};
  Put(L"Demo", longer);
  const ProgramResult result = RunKovactl(L"log add Error --logger Demo");
  ExpectRefusal(result, 1, "give it one with kovactl log set");
  EXPECT_EQ(Value(L"Demo"), longer);
  EXPECT_EQ(RunKovactl(L"log set Error --logger Demo").exitCode, 0u);
  EXPECT_EQ(Value(L"Demo"), (ValueState{true, REG_DWORD, {0, 0, 0, 0x80}}));
}

// Runs "kovactl log follow" for a while; meanwhile this process writes lines.
ProgramResult Follow(const std::wstring& options) {
  ProgramResult result;
  std::atomic<bool> hasEnded = false;
  std::thread follower([&] {
    result = RunKovactl(L"log follow --seconds 3 " + options);
    hasEnded = true;
  });
  while (!hasEnded) {
    ::OutputDebugStringW(L"Info Test::Follow: seen\nand this");
    ::OutputDebugStringW(L"something else");
    ::Sleep(20);
  }
  follower.join();
  return result;
}

TEST_F(LogVerbTest, PutsBackByItsOwnCommandWhateverWasThere) {
  const ValueState kBefores[] = {{true, REG_SZ, {'7', 0, 0, 0}},
                                 {true, REG_SZ, {}},
                                 {true, REG_BINARY, {1, 2, 3, 4, 5}},
                                 {true, REG_DWORD, {1, 0, 0, 0x80}}};
  for (const ValueState& before : kBefores) {
    Put(kServerLoggerName, before);
    const std::string output = RunKovactl(L"log set Error").output;
    constexpr std::string_view kLabel = "Undo with:      kovactl ";
    const std::string undo = output.substr(output.find(kLabel) + kLabel.size());
    EXPECT_EQ(RunKovactl({undo.begin(), undo.end() - 1}).exitCode, 0u);
    EXPECT_EQ(Value(kServerLoggerName), before);
  }
  ExpectRefusal(RunKovactl(L"log set --raw 4"), 2, "no type and bytes");
  ExpectRefusal(RunKovactl(L"log set Info --raw 4:00"), 2, "excludes");
}

TEST_F(LogVerbTest, FollowsTheServersLinesOfAnotherProcess) {
  const ProgramResult result = Follow(L"");
  EXPECT_EQ(result.exitCode, 0u);
  const std::string id = std::to_string(::GetCurrentProcessId());
  EXPECT_THAT(result.output,
              HasSubstr(id + " Info        Test::Follow: seen\n" +
                        std::string(31, ' ') + "and this\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("something else")));
  EXPECT_THAT(result.errors, HasSubstr("kovactl log add DebuggerOutput\n"));
  EXPECT_THAT(result.errors, HasSubstr("of others left out"));
}

TEST_F(LogVerbTest, FollowsOneProcessAndAllLines) {
  Put(kServerLoggerName, {true, REG_DWORD, {0, 0, 0, 0xE8}});
  const std::wstring id = std::to_wstring(::GetCurrentProcessId());
  const ProgramResult own = Follow(L"--all --json --pid " + id);
  EXPECT_THAT(own.output, HasSubstr("\"channel\":null,\"text\":\"something "
                                    "else\",\"cut\":false}\n"));
  EXPECT_THAT(own.errors, Not(HasSubstr("DebuggerOutput")));
  const ProgramResult other = Follow(L"--all --pid 4294967295");
  EXPECT_EQ(other.output, "");
  EXPECT_EQ(other.exitCode, 0u);
}

TEST_F(LogVerbTest, SaysThatAnotherProgramReadsTheLines) {
  DebugBuffer session;
  DebugBuffer services;
  ASSERT_EQ(session.Open(DebugScope::kSession), DWORD{ERROR_SUCCESS});
  static_cast<void>(services.Open(DebugScope::kServices));
  const ProgramResult result = RunKovactl(L"log follow --seconds 1");
  ExpectRefusal(result, 1, "another program reads the debugger output");
}

TEST(DumpsVerbTest, ListsAndShowsDumps) {
  const ScratchFolder folder;
  DumpParts parts;
  const std::wstring path =
      folder.Add(L"KOVAServerCrash_0005.dmp", SmallDump(parts).bytes);
  const std::wstring where = L" --folder \"" + folder.Path() + L"\"";
  const ProgramResult list = RunKovactl(L"dumps" + where);
  EXPECT_EQ(list.exitCode, 0u);
  EXPECT_THAT(list.output, StartsWith(ToUtf8(folder.Path()) + "\n   N  Time"));
  EXPECT_THAT(list.output, HasSubstr("c0000005  KOVAServer.dll\n"));
  EXPECT_THAT(RunKovactl(L"dumps show 5" + where).output,
              HasSubstr("  Where      KOVAServer.dll+0x1234 "));
  EXPECT_THAT(RunKovactl(L"dumps show --json \"" + path + L"\"").output,
              HasSubstr("\"offset\": \"0x1234\""));
  EXPECT_THAT(RunKovactl(L"dumps --json" + where).output,
              HasSubstr("\"number\": 5,"));
}

TEST(DumpsVerbTest, RefusesWhatIsNoDump) {
  const ScratchFolder folder;
  static_cast<void>(folder.Add(L"empty.dmp", {}));
  const std::wstring where = L" --folder \"" + folder.Path() + L"\"";
  const ProgramResult empty = RunKovactl(L"dumps show empty.dmp" + where);
  ExpectRefusal(empty, 1, "empty.dmp is empty: writing it was cut short; ");
  const ProgramResult missing = RunKovactl(L"dumps show 7" + where);
  ExpectRefusal(missing, 9, "there is no dump 7 in ");
  const ProgramResult nowhere = RunKovactl(L"dumps --folder C:\\nowhere");
  ExpectRefusal(nowhere, 9, "there is no folder C:\\nowhere");
  EXPECT_EQ(RunKovactl(L"dumps show").exitCode, 2u);
}

}  // namespace
