// Patched: what the debugger is shown.
#include "log/sinks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "test/support/fake_tick_count.h"
#include "test/support/log_capture.h"

namespace {

using kova::test::DeleteLogMask;
using kova::test::FakeTickCount;
using kova::test::LogCapture;
using kova::test::SetLogMask;
using testing::ElementsAre;
using testing::IsEmpty;
using tk::LogChannel;

constexpr wchar_t kName[] = L"test debugger sink";

class DebuggerSinkTest : public testing::Test {
 protected:
  DebuggerSinkTest() { DeleteLogMask(kName); }
  ~DebuggerSinkTest() override { DeleteLogMask(kName); }

  std::vector<std::wstring> LinesWithMask(uint32_t mask) {
    const auto logger =
        std::make_shared<tk::Logger>(kName, 0, std::vector<tk::LogFormatter>(),
                                     std::vector<tk::LogSink>(), 0);
    SetLogMask(mask, kName);
    m_clock.Advance(5001);
    logger->Log(LogChannel::Info, L"i");
    logger->Log(LogChannel::DetailInfoP, L"p");
    logger->Log(static_cast<LogChannel>(0xC0000000), L"both");
    logger->Warning(L"w");
    logger->Error(L"e");
    return m_capture.Take();
  }
  FakeTickCount m_clock;
  LogCapture m_capture;
};

TEST_F(DebuggerSinkTest, AlwaysShowsErrorsAndWarnings) {
  EXPECT_THAT(LinesWithMask(0), ElementsAre(L"Warning w", L"Error e"));
}

TEST_F(DebuggerSinkTest, ShowsOthersOnlyWithTheSwitchAndTheirOwnBit) {
  EXPECT_THAT(LinesWithMask(0xF000FFFF), ElementsAre(L"Warning w", L"Error e"));
  EXPECT_THAT(LinesWithMask(0x08000000), ElementsAre(L"Warning w", L"Error e"));
  EXPECT_THAT(LinesWithMask(0x28000000),
              ElementsAre(L"Info i", L"Warning w", L"Error e"));
  EXPECT_THAT(LinesWithMask(0x08008000),
              ElementsAre(L"DetailInfoP p", L"Warning w", L"Error e"));
  EXPECT_THAT(LinesWithMask(0x88000000),
              ElementsAre(L" both", L"Warning w", L"Error e"));
}

// A mask of one bit never shows a channel other than errors and warnings; the
// switch and the channel's own bit together do, whatever else is set.
TEST_F(DebuggerSinkTest, NeedsTheSwitchAndTheOwnBitOfEveryChannel) {
  const auto logger = std::make_shared<tk::Logger>(
      kName, 0, std::vector<tk::LogFormatter>(), std::vector<tk::LogSink>(), 0);
  const auto shows = [&](uint32_t mask, LogChannel channel) {
    SetLogMask(mask, kName);
    m_clock.Advance(5001);
    logger->Log(channel, L"text");
    return m_capture.Take().size() == 1;
  };
  for (const auto& [channel, name] : tk::ChannelNames) {
    if (channel == LogChannel::Error || channel == LogChannel::Warning) {
      continue;
    }
    const uint32_t own = static_cast<uint32_t>(channel);
    EXPECT_FALSE(shows(own, channel)) << std::hex << own;
    EXPECT_FALSE(shows(~uint32_t{0x08000000}, channel)) << std::hex << own;
    EXPECT_FALSE(shows(~own, channel)) << std::hex << own;
    EXPECT_TRUE(shows(own | 0x08000000, channel)) << std::hex << own;
  }
  for (int bit = 0; bit < 32; ++bit) {
    const uint32_t mask = uint32_t{1} << bit;
    EXPECT_TRUE(shows(mask, LogChannel::Error)) << std::hex << mask;
    EXPECT_TRUE(shows(mask, LogChannel::Warning)) << std::hex << mask;
  }
}

TEST_F(DebuggerSinkTest, RefreshesTheMaskItself) {
  const auto logger = std::make_shared<tk::Logger>(
      kName, 0x20000000, std::vector<tk::LogFormatter>(),
      std::vector<tk::LogSink>(), 0);
  const tk::LogSink sink = kova::MakeDebuggerSink(logger.get());
  SetLogMask(tk::kDebuggerShowsAll, kName);
  sink(logger.get(), LogChannel::Info, L"a");
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
  m_clock.Advance(5001);
  sink(logger.get(), LogChannel::Info, L"b");
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"b"));
}

}  // namespace
