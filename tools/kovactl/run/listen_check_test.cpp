// Unit: what a start of the server came to.
#include "run/listen_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::kova::ctl::ExitCode;
using ::kova::ctl::JudgeStart;
using ::kova::ctl::ServerSettings;
using ::testing::HasSubstr;

const ServerSettings kSettings{true, 5130};

std::wstring BindLine(const std::wstring& error) {
  return L"Error WebServerBase::_AcceptThread: AcceptThread: bind(...) "
         L"failure. GetLastError:" +
         error;
}

TEST(JudgeStartTest, IsContentWithAServerThatAcceptsAndReportsNothing) {
  EXPECT_FALSE(JudgeStart(kSettings, {}, true).has_value());
}

TEST(JudgeStartTest, TellsThatThePortIsInUse) {
  for (const wchar_t* error : {L"10048", L"10013"}) {
    // That something accepts proves nothing: it is the other program.
    for (const bool accepts : {false, true}) {
      const auto failure = JudgeStart(kSettings, {BindLine(error)}, accepts);
      ASSERT_TRUE(failure.has_value());
      EXPECT_EQ(failure->code, ExitCode::kPortInUse);
      EXPECT_THAT(failure->text, HasSubstr(L"port 5130 is in use"));
      EXPECT_THAT(failure->text, HasSubstr(L"--port"));
    }
  }
}

TEST(JudgeStartTest, QuotesAnyOtherError) {
  const auto failure =
      JudgeStart(kSettings, {BindLine(L"10049"), L"Error later"}, false);
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, ExitCode::kNotListening);
  EXPECT_THAT(failure->text, HasSubstr(BindLine(L"10049")));
}

TEST(JudgeStartTest, NamesTheSwitchThatKeepsTheServerQuiet) {
  const auto failure = JudgeStart({false, 5130}, {}, false);
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, ExitCode::kNotListening);
  EXPECT_THAT(failure->text, HasSubstr(L"\"TCP Enabled\" is 0"));
}

TEST(JudgeStartTest, DoesNotTakeSilenceForSuccess) {
  const auto failure = JudgeStart(kSettings, {}, false);
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, ExitCode::kNotListening);
  EXPECT_THAT(failure->text, HasSubstr(L"nothing listens on port 5130"));
}

}  // namespace
