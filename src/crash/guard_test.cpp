// Whole: programs that crash inside the guard, and the dumps they leave.
#include "crash/guard.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/windows_api.h"
#include "test/crash/crash_run.h"

namespace {

using kova::RunGuarded;

// Runs the program that crashes inside the guard; gives its exit code.
DWORD RunCrashProgram(const std::wstring& arguments) {
  return kova::test::RunToEnd(L"crash_program.exe", arguments);
}

// The exception code that the one new dump names; 0 if there is not one.
uint32_t ExceptionIn(const std::vector<std::filesystem::path>& dumps) {
  if (dumps.size() != 1) return 0;
  return kova::test::ReadDump(dumps[0]).exceptionCode;
}

class GuardProgramTest : public testing::Test {
 protected:
  [[nodiscard]] std::vector<std::filesystem::path> NewDumps() const {
    return m_watch.NewDumps();
  }
  const kova::test::DumpWatch m_watch;
};

TEST_F(GuardProgramTest, AnAccessViolationLeavesADumpAndGoesOn) {
  EXPECT_EQ(RunCrashProgram(L"access 60001"), EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(ExceptionIn(NewDumps()), EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(GuardProgramTest, AStackOverflowLeavesADumpToo) {
  EXPECT_EQ(RunCrashProgram(L"overflow 60001"), EXCEPTION_STACK_OVERFLOW);
  EXPECT_EQ(ExceptionIn(NewDumps()), EXCEPTION_STACK_OVERFLOW);
}

TEST_F(GuardProgramTest, AThrownExceptionLeavesADump) {
  EXPECT_NE(RunCrashProgram(L"throw 60001"), 0u);
  EXPECT_EQ(NewDumps().size(), 1u);
}

TEST_F(GuardProgramTest, ACrashOfTheRecordingChangesNothing) {
  EXPECT_EQ(RunCrashProgram(L"crash-twice 60001"), EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(RunCrashProgram(L"crash-and-throw 60001"),
            EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(GuardProgramTest, WithoutALoggerADumpIsLeftAllTheSame) {
  EXPECT_EQ(RunCrashProgram(L"no-logger 60001"), EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(ExceptionIn(NewDumps()), EXCEPTION_ACCESS_VIOLATION);
}

// Whatever is thrown while a crash is recorded, the host is asked once, and
// about the crash.
TEST_F(GuardProgramTest, NothingThrownByTheRecordingReachesTheHost) {
  constexpr DWORD kThrown = 0x20474343;
  EXPECT_EQ(RunCrashProgram(L"access 60001 handled"),
            EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(RunCrashProgram(L"crash-and-throw-number 60001 handled"),
            EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(RunCrashProgram(L"crash-and-throw-foreign 60001 handled"),
            EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(RunCrashProgram(L"throw-twice 60001 handled"), kThrown);
  EXPECT_EQ(RunCrashProgram(L"throw-and-throw-foreign 60001 handled"), kThrown);
}

TEST_F(GuardProgramTest, NoDumpIsLeftWhileTheMachineHasJustStarted) {
  EXPECT_EQ(RunCrashProgram(L"access 60000"), EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(NewDumps().size(), 0u);
}

TEST_F(GuardProgramTest, AnOrdinaryReturnLeavesNone) {
  EXPECT_EQ(RunCrashProgram(L"return 60001"), 4660u);
  EXPECT_EQ(NewDumps().size(), 0u);
}

TEST(GuardTest, HandsArgumentAndResultThrough) {
  int value = 41;
  const auto body = [](void* argument) -> unsigned {
    return static_cast<unsigned>(++*static_cast<int*>(argument));
  };
  EXPECT_EQ(RunGuarded(body, &value), 42u);
  EXPECT_EQ(value, 42);
}

TEST(GuardTest, LetsAThrownExceptionGoOnToItsHandler) {
  const auto body = [](void*) -> unsigned { throw 4660; };
  int caught = 0;
  try {
    (void)RunGuarded(body, nullptr);
  } catch (int number) {
    caught = number;
  }
  EXPECT_EQ(caught, 4660);
}

TEST(GuardTest, RaisesTheStackGuarantee) {
  (void)RunGuarded([](void*) -> unsigned { return 0; }, nullptr);
  ULONG bytes = 0;
  EXPECT_TRUE(::SetThreadStackGuarantee(&bytes));
  EXPECT_GE(bytes, 64u * 1024);
}

}  // namespace
