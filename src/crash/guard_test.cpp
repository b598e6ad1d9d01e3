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

unsigned Raise(void* code) {
  ::RaiseException(*static_cast<const DWORD*>(code), 0, 0, nullptr);
  return 0;
}

// The code under which RunContained lets an exception pass; 0 if it does not.
// No object with a destructor may live in this function.
DWORD CodeLetPass(DWORD raised) {
  DWORD passed = 0;
  __try {
    kova::RunContained(&Raise, &raised);
  } __except (passed = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER) {
  }
  return passed;
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

TEST(GuardTest, ContainsMachineFaultsAndLetsThrownExceptionsPass) {
  int runs = 0;
  kova::RunContained(
      [](void* count) -> unsigned { return ++*static_cast<unsigned*>(count); },
      &runs);
  EXPECT_THROW(
      kova::RunContained([](void*) -> unsigned { throw 4660; }, nullptr), int);
  kova::RunContained(
      [](void*) -> unsigned {
        ::RaiseException(0xE0004660, 0, 0, nullptr);
        return 0;
      },
      nullptr);
  EXPECT_EQ(runs, 1);
}

TEST(GuardTest, KnowsWhatThisRuntimeThrowsByItsCode) {
  EXPECT_EQ(CodeLetPass(0x20474343), 0x20474343u);
  EXPECT_EQ(CodeLetPass(0xE06D7363), 0u);
  EXPECT_EQ(CodeLetPass(0x20474344), 0u);
  EXPECT_EQ(CodeLetPass(0xE06D7364), 0u);
  EXPECT_EQ(CodeLetPass(EXCEPTION_ACCESS_VIOLATION), 0u);
}

TEST(GuardTest, RaisesTheStackGuarantee) {
  (void)RunGuarded([](void*) -> unsigned { return 0; }, nullptr);
  ULONG bytes = 0;
  EXPECT_TRUE(::SetThreadStackGuarantee(&bytes));
  EXPECT_GE(bytes, 64u * 1024);
}

}  // namespace
