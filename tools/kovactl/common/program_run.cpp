#include "common/program_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/handles.h"
#include "base/windows_api.h"
#include "common/captured_output.h"
#include "common/file_path.h"

namespace kova::ctl::test {
namespace {

void LetChildrenInherit(const ReadPipe& pipe) {
  ::SetHandleInformation(pipe.WritingEnd(), HANDLE_FLAG_INHERIT,
                         HANDLE_FLAG_INHERIT);
}

std::wstring CommandLine(const std::wstring& arguments) {
  return L"\"" + ProgramFolder() + L"\\..\\bin\\kovactl.exe\" " + arguments;
}

}  // namespace

ProgramResult RunKovactl(const std::wstring& arguments) {
  // Wine starts its desktop with the first program that asks for one. Started
  // by the tool, it would inherit the pipes and keep them open.
  (void)::GetDesktopWindow();
  ReadPipe output;
  ReadPipe errors;
  LetChildrenInherit(output);
  LetChildrenInherit(errors);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.WritingEnd();
  startup.hStdError = errors.WritingEnd();
  PROCESS_INFORMATION process{};
  std::wstring commandLine = CommandLine(arguments);
  ProgramResult result;
  if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0,
                        nullptr, nullptr, &startup, &process)) {
    return result;
  }
  const UniqueKernelHandle child(process.hProcess);
  const UniqueKernelHandle thread(process.hThread);
  ::WaitForSingleObject(child.Get(), INFINITE);
  ::GetExitCodeProcess(child.Get(), &result.exitCode);
  result.output = output.Finish();
  result.errors = errors.Finish();
  return result;
}

void ExpectFailure(const ProgramResult& result, unsigned long code,
                   const std::string& says) {
  EXPECT_EQ(result.exitCode, code);
  EXPECT_THAT(result.errors, ::testing::StartsWith("kovactl: error: "));
  EXPECT_THAT(result.errors, ::testing::HasSubstr(says));
  EXPECT_THAT(result.errors, ::testing::EndsWith("\n"));
  EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1);
}

void ExpectRefusal(const ProgramResult& result, unsigned long code,
                   const std::string& says) {
  ExpectFailure(result, code, says);
  EXPECT_EQ(result.output, "");
}

}  // namespace kova::ctl::test
