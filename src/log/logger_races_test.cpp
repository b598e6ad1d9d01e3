// Unit: what threads share in one logger, for the thread sanitizer to watch.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "log/log_line.h"
#include "log/server_logger.h"
#include "logging_calls.h"

namespace {

using kova::LogLine;
using kova::test::TheLoggingCalls;
using tk::LogChannel;

constexpr int kThreads = 8;
constexpr uint32_t kLinesEach = 2000;
constexpr uint32_t kLines = kThreads * kLinesEach;
constexpr uint32_t kEverything = 0xFFFFFFFF;
constexpr uint32_t kInfoAndAbove = 0xE0000000;

template <typename Work>
void OnAllThreads(const Work& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
}

TEST(LoggingRacesTest, TheFirstLinesOfAllThreadsMeetOneLogger) {
  OnAllThreads([] {
    LogLine(LogChannel::Error, "A::B") << L"first " << 1;
    EXPECT_EQ(GetServerLogger().get(), kova::ServerLogger());
  });
  EXPECT_EQ(TheLoggingCalls().events, uint32_t{kThreads});
}

TEST(LoggingRacesTest, EverySinkGetsEveryLineOfEveryThread) {
  const uint32_t events = TheLoggingCalls().events;
  const uint32_t lines = TheLoggingCalls().debuggerLines;
  OnAllThreads([] {
    for (uint32_t i = 0; i < kLinesEach; ++i) {
      LogLine(LogChannel::Warning, "A::B") << L"line " << i;
    }
  });
  EXPECT_EQ(TheLoggingCalls().events - events, kLines);
  EXPECT_EQ(TheLoggingCalls().debuggerLines - lines, kLines);
}

// The clock runs so fast that every call or two finds a refresh due.
TEST(LoggingRacesTest, TheMaskMayChangeWhileAllThreadsLog) {
  TheLoggingCalls().stepMs = 3000;
  std::atomic<bool> done = false;
  std::thread administrator([&done] {
    while (!done) {
      TheLoggingCalls().mask = kInfoAndAbove;
      GetServerLogger()->WidenMask(1);
      TheLoggingCalls().mask = kEverything;
    }
  });
  OnAllThreads([] {
    for (uint32_t i = 0; i < kLinesEach; ++i) {
      LogLine(LogChannel::DetailInfoE, "A::B") << L"line " << i;
    }
  });
  done = true;
  administrator.join();
  EXPECT_EQ(TheLoggingCalls().mask, kEverything);
}

}  // namespace
