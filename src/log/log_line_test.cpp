// Patched: log lines as the debugger sees them, and the server's logger.
#include "log/log_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "log/server_logger.h"
#include "test/support/fake_tick_count.h"
#include "test/support/log_capture.h"

namespace {

using kova::Hex;
using kova::LogLine;
using kova::test::FakeTickCount;
using kova::test::LogCapture;
using kova::test::ScopedLogMask;
using testing::ElementsAre;
using testing::IsEmpty;
using tk::LogChannel;

constexpr uint32_t kInfoShown = 0xE0000000 | tk::kDebuggerShowsAll;

class LogLineTest : public testing::Test {
 protected:
  // A clock far ahead of any other test's makes the logger read its mask.
  LogLineTest() : m_mask(kInfoShown), m_clock(s_nowMs += 100000) {}

  static inline uint64_t s_nowMs = uint64_t{1} << 40;
  const ScopedLogMask m_mask;
  FakeTickCount m_clock;
  LogCapture m_capture;
};

TEST_F(LogLineTest, WritesMethodAndTextAtTheEndOfItsScope) {
  {
    LogLine line(LogChannel::Info, "Class::Method");
    line << L"text " << 4660;
    EXPECT_THAT(m_capture.Lines(), IsEmpty());
  }
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Info Class::Method: text 4660"));
}

TEST_F(LogLineTest, WritesOneStatementLinesInOrder) {
  LogLine(LogChannel::Error, "A::B") << L"one";
  LogLine(LogChannel::Warning, "A::B") << std::wstring(L"two");
  LogLine(LogChannel::Info, "C") << "three" << L'!';
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(L"Error A::B: one", L"Warning A::B: two", L"Info C: three!"));
}

TEST_F(LogLineTest, WritesNothingOnADisabledChannel) {
  LogLine line(LogChannel::DetailInfo, "A::B");
  EXPECT_FALSE(line);
  line << L"text";
  LogLine enabled(LogChannel::Info, "A::B");
  EXPECT_TRUE(enabled);
}

TEST_F(LogLineTest, AnErrorIsTestedAgainstTheMaskBeforeItIsBuilt) {
  const ScopedLogMask silent(0);
  m_clock.Advance(5001);
  LogLine(LogChannel::Error, "A::B") << L"mask lacks the bit";
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

TEST_F(LogLineTest, ToleratesANullLoggerAndNullTexts) {
  const std::shared_ptr<tk::Logger> none;
  EXPECT_FALSE(LogLine(none, LogChannel::Error, "A::B"));
  const wchar_t* const noText = nullptr;
  const char* const noNarrowText = nullptr;
  LogLine(LogChannel::Info, "A::B") << noText << noNarrowText << L"after";
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Info A::B: after"));
}

TEST_F(LogLineTest, ShowsHexadecimalWithoutPrefixOrPadding) {
  LogLine(LogChannel::Info, "A") << Hex(0) << L' ' << Hex(0xABCDEF) << L' '
                                 << Hex(~uint64_t{0}) << L' ' << 10;
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(L"Info A: 0 abcdef ffffffffffffffff 10"));
}

TEST_F(LogLineTest, KeepsTheLastErrorWhileItIsComposed) {
  ::SetLastError(1234);
  {
    LogLine line(LogChannel::Info, "A");
    line << L"error " << ::GetLastError();
    ::SetLastError(99);
  }
  EXPECT_EQ(::GetLastError(), 1234u);
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Info A: error 1234"));
}

TEST_F(LogLineTest, KeepsItsLoggerAlive) {
  std::shared_ptr<tk::Logger> logger = std::make_shared<tk::Logger>(
      L"test KeepsItsLoggerAlive", kInfoShown, std::vector<tk::LogFormatter>(),
      std::vector<tk::LogSink>(), 0);
  {
    LogLine line(logger, LogChannel::Info, "A");
    logger.reset();
    line << L"text";
  }
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Info A: text"));
  kova::test::DeleteLogMask(L"test KeepsItsLoggerAlive");
}

TEST(ServerLoggerTest, IsOneForAllThreads) {
  const auto logger = GetServerLogger();
  ASSERT_NE(logger, nullptr);
  EXPECT_EQ(logger->Name(), L"Corvane KOVA Server");
  EXPECT_EQ(kova::ServerLogger(), logger.get());
  std::shared_ptr<tk::Logger> elsewhere;
  std::thread([&] { elsewhere = GetServerLogger(); }).join();
  EXPECT_EQ(elsewhere, logger);
}

TEST(LastErrorTextTest, ShowsEightUpperCaseDigits) {
  ::SetLastError(0xABCDEF);
  EXPECT_EQ(tk::LastErrorText(), L" GetLastError: 0x00ABCDEF");
  EXPECT_EQ(::GetLastError(), 0xABCDEFu);
  ::SetLastError(0xFFFFFFFF);
  EXPECT_EQ(tk::LastErrorText(), L" GetLastError: 0xFFFFFFFF");
  ::SetLastError(0);
  EXPECT_EQ(tk::LastErrorText(), L" GetLastError: 0x00000000");
}

}  // namespace
