// Whole: programs that crash inside the guard, and the dumps they leave.
#include "crash/guard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "base/handles.h"
#include "crash/debug_help.h"
#include "registry/common_folders.h"

namespace {

using kova::RunGuarded;

namespace fs = std::filesystem;

fs::path DumpFolder() {
  return fs::path(GetCommonAppDataFolder()) / L"Corvane/Drivers/Dump";
}

std::set<fs::path> Dumps() {
  std::set<fs::path> dumps;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(DumpFolder(), none)) {
    dumps.insert(entry.path());
  }
  return dumps;
}

std::wstring CrashProgram() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return fs::path(path).replace_filename(L"crash_program.exe").native();
}

// Runs the program to its end and returns its exit code.
DWORD RunCrashProgram(const std::wstring& arguments) {
  std::wstring line = L"\"" + CrashProgram() + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0,
                        nullptr, nullptr, &startup, &process)) {
    ADD_FAILURE() << "cannot start the crash program";
    return 0;
  }
  const kova::UniqueKernelHandle thread(process.hThread);
  const kova::UniqueKernelHandle handle(process.hProcess);
  if (::WaitForSingleObject(handle.Get(), 60000) != WAIT_OBJECT_0) {
    ADD_FAILURE() << "the crash program does not end";
    ::TerminateProcess(handle.Get(), 1);
  }
  DWORD code = 0;
  ::GetExitCodeProcess(handle.Get(), &code);
  return code;
}

// The exception code that a dump file names; 0 if it names none.
DWORD ExceptionIn(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  MINIDUMP_DIRECTORY* directory = nullptr;
  void* stream = nullptr;
  ULONG sizeBytes = 0;
  if (bytes.substr(0, 4) != "MDMP" ||
      !::MiniDumpReadDumpStream(bytes.data(), ExceptionStream, &directory,
                                &stream, &sizeBytes)) {
    return 0;
  }
  return static_cast<MINIDUMP_EXCEPTION_STREAM*>(stream)
      ->ExceptionRecord.ExceptionCode;
}

// Removes the dumps that a test added.
class GuardProgramTest : public testing::Test {
 protected:
  ~GuardProgramTest() override {
    for (const fs::path& path : NewDumps()) fs::remove(path);
  }
  [[nodiscard]] std::vector<fs::path> NewDumps() const {
    std::vector<fs::path> added;
    const std::set<fs::path> now = Dumps();
    std::set_difference(now.begin(), now.end(), m_former.begin(),
                        m_former.end(), std::back_inserter(added));
    return added;
  }
  const std::set<fs::path> m_former = Dumps();
};

TEST_F(GuardProgramTest, AnAccessViolationLeavesADumpAndGoesOn) {
  EXPECT_EQ(RunCrashProgram(L"access 60001"), EXCEPTION_ACCESS_VIOLATION);
  ASSERT_EQ(NewDumps().size(), 1u);
  EXPECT_EQ(ExceptionIn(NewDumps()[0]), EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(GuardProgramTest, AStackOverflowLeavesADumpToo) {
  EXPECT_EQ(RunCrashProgram(L"overflow 60001"), EXCEPTION_STACK_OVERFLOW);
  ASSERT_EQ(NewDumps().size(), 1u);
  EXPECT_EQ(ExceptionIn(NewDumps()[0]), EXCEPTION_STACK_OVERFLOW);
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

TEST(GuardTest, RaisesTheStackGuarantee) {
  (void)RunGuarded([](void*) -> unsigned { return 0; }, nullptr);
  ULONG bytes = 0;
  EXPECT_TRUE(::SetThreadStackGuarantee(&bytes));
  EXPECT_GE(bytes, 64u * 1024);
}

}  // namespace
