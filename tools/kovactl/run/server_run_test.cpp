// Patched: a run without the rights to change settings.
#include "run/server_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "common/captured_output.h"
#include "common/file_path.h"
#include "test/support/import_patch.h"

namespace {

using ::kova::ctl::ExitCode;
using ::kova::ctl::ProgramFolder;
using ::kova::ctl::RunOptions;
using ::kova::ctl::RunServer;
using ::kova::ctl::test::CapturedOutput;
using ::kova::test::ImportPatch;
using ::testing::HasSubstr;

LSTATUS WINAPI DeniedCreate(HKEY, const wchar_t*, DWORD, wchar_t*, DWORD,
                            REGSAM, SECURITY_ATTRIBUTES*, HKEY*, DWORD*) {
  return ERROR_ACCESS_DENIED;
}

class RunWithoutRightsTest : public ::testing::Test {
 protected:
  RunWithoutRightsTest() {
    m_options.library = ProgramFolder() + L"\\fake-server\\KOVAServer.dll";
    m_options.seconds = 0;
    ::SetEnvironmentVariableW(L"KOVA_FAKE_SERVER", L"error");
  }
  ~RunWithoutRightsTest() override {
    ::SetEnvironmentVariableW(L"KOVA_FAKE_SERVER", nullptr);
  }

  RunOptions m_options;
  ImportPatch<decltype(DeniedCreate)> m_patch{nullptr, "RegCreateKeyExW",
                                              &DeniedCreate};
};

TEST_F(RunWithoutRightsTest, FailsIfThePortIsToBeChanged) {
  m_options.port = 5131;
  const auto failure = RunServer(m_options);
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, ExitCode::kAccessDenied);
  EXPECT_THAT(failure->text, HasSubstr(L"administrator's prompt"));
}

TEST_F(RunWithoutRightsTest, OtherwiseOnlyShowsLess) {
  CapturedOutput capture;
  const auto failure = RunServer(m_options);
  EXPECT_THAT(capture.Finish(), HasSubstr("only errors and warnings"));
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, ExitCode::kNotListening);
}

}  // namespace
