// Unit: exit codes and the words of failures.
#include "common/exit_code.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/windows_api.h"

namespace {

using ::kova::ctl::ExitCode;
using ::kova::ctl::ExitCodeHelp;
using ::kova::ctl::Failure;
using ::kova::ctl::SystemErrorText;
using ::kova::ctl::SystemFailure;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST(ExitCodeTest, KeepsTheNumbersThatScriptsKnow) {
  EXPECT_EQ(static_cast<int>(ExitCode::kSuccess), 0);
  EXPECT_EQ(static_cast<int>(ExitCode::kInternalError), 1);
  EXPECT_EQ(static_cast<int>(ExitCode::kWrongUsage), 2);
  EXPECT_EQ(static_cast<int>(ExitCode::kMissingFile), 3);
  EXPECT_EQ(static_cast<int>(ExitCode::kUnsuitableLibrary), 4);
  EXPECT_EQ(static_cast<int>(ExitCode::kPortInUse), 5);
  EXPECT_EQ(static_cast<int>(ExitCode::kAccessDenied), 6);
  EXPECT_EQ(static_cast<int>(ExitCode::kNotListening), 7);
  EXPECT_EQ(static_cast<int>(ExitCode::kSpooler), 8);
  EXPECT_EQ(static_cast<int>(ExitCode::kNotFound), 9);
  EXPECT_EQ(static_cast<int>(ExitCode::kNoAnswer), 10);
}

TEST(ExitCodeTest, ListsEveryCodeInTheHelp) {
  const std::string help = ExitCodeHelp();
  EXPECT_THAT(help, StartsWith("Exit codes:\n  0  "));
  for (int code = 0; code <= 10; ++code) {
    EXPECT_THAT(help, HasSubstr("\n  " + std::to_string(code) + "  "));
  }
  EXPECT_NE(help.back(), '\n');
}

TEST(SystemFailureTest, AdvisesWhenRightsAreMissing) {
  for (const DWORD error : {ERROR_ACCESS_DENIED, ERROR_PRIVILEGE_NOT_HELD}) {
    const Failure failure = SystemFailure(ExitCode::kSpooler, L"no go", error);
    EXPECT_EQ(failure.code, ExitCode::kAccessDenied);
    EXPECT_EQ(failure.text,
              L"no go: access denied; run this from an administrator's prompt");
  }
}

TEST(SystemFailureTest, NamesAnyOtherErrorByTextAndNumber) {
  const Failure failure =
      SystemFailure(ExitCode::kSpooler, L"no go", ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(failure.code, ExitCode::kSpooler);
  EXPECT_THAT(failure.text, StartsWith(L"no go ("));
  EXPECT_THAT(failure.text, HasSubstr(L"error 2)"));
  EXPECT_THAT(failure.text, Not(HasSubstr(L"\n")));
}

TEST(SystemErrorTextTest, IsNeverEmptyAndHasNoPlaces) {
  EXPECT_EQ(SystemErrorText(0xDEADBEEF), L"error 3735928559");
  EXPECT_THAT(SystemErrorText(ERROR_BAD_EXE_FORMAT), Not(HasSubstr(L"%1")));
}

}  // namespace
