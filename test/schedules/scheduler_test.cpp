// Unit: threads that change only where they say so, and the schedules that are
// tried with them; of that, what would find fewer faults if it were wrong.
#include "test/schedules/scheduler.h"

#include <gmock/gmock.h>

#include <set>

#include "test/schedules/explorer.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using Ending = Scheduler::Ending;

class SchedulerTest : public testing::Test {
 protected:
  Ending Run(const std::function<void()>& host) {
    ScheduleChooser chooser;
    m_text.clear();
    return m_scheduler.Run(host, chooser);
  }
  void Await(uint64_t timeoutMs = kNever) {
    m_scheduler.Await("waiting", [] { return false; }, timeoutMs);
  }
  // A thread that writes its letter once before and once after a point.
  void BeginWriter(char letter, bool isServers = false) {
    m_scheduler.Begin(
        std::string(1, letter),
        [this, letter] {
          m_text += letter;
          m_scheduler.Point("writing");
          m_text += letter;
        },
        isServers);
  }
  Explored Explore(const Limits& limits, const std::function<void()>& host,
                   const std::function<void()>& afterEach) {
    return ExploreSchedules(limits, [&](ScheduleChooser& chooser) {
      m_text.clear();
      EXPECT_EQ(m_scheduler.Run(host, chooser), Ending::kAllEnded);
      afterEach();
      return true;
    });
  }
  // All texts that come of two writers, under all schedules within the limits.
  std::multiset<std::string> TextsOfTwo(const Limits& limits,
                                        bool isComplete = true) {
    std::multiset<std::string> texts;
    const Explored explored = Explore(
        limits,
        [this] {
          BeginWriter('a');
          BeginWriter('b');
        },
        [&] { texts.insert(m_text); });
    EXPECT_EQ(explored.isComplete, isComplete);
    return texts;
  }

  Scheduler m_scheduler;
  std::string m_text;
};

TEST_F(SchedulerTest, EveryOrderIsTriedOnce) {
  EXPECT_THAT(TextsOfTwo({}),
              ElementsAre("aabb", "abab", "abba", "baab", "baba", "bbaa"));
}

TEST_F(SchedulerTest, OrdersBeyondTheLimitsAreNot) {
  EXPECT_THAT(TextsOfTwo({0}), ElementsAre("aabb", "bbaa"));
  EXPECT_THAT(TextsOfTwo({2, 4}, false), testing::SizeIs(4));
}

TEST_F(SchedulerTest, TwoWaitsForEachOtherAreADeadlock) {
  EXPECT_EQ(Run([this] {
              m_scheduler.Begin("other", [this] { Await(); }, false);
              Await();
            }),
            Ending::kDeadlock);
  EXPECT_EQ(m_scheduler.Standing(),
            "  0 host stands at waiting\n  1 other stands at waiting\n");
}

TEST_F(SchedulerTest, TimePassesOnlyWhileNobodyCanRun) {
  uint64_t passedMs = 0;
  Run([&] {
    const uint64_t startMs = m_scheduler.NowMs();
    BeginWriter('a');
    Await(700);
    passedMs = m_scheduler.NowMs() - startMs;
    m_text += 'h';
  });
  EXPECT_EQ(passedMs, 700u);
  EXPECT_EQ(m_text, "aah");
}

TEST_F(SchedulerTest, AStalledThreadGoesOnLater) {
  std::set<std::string> texts;
  Explore(
      {1},
      [&] {
        BeginWriter('a', true);
        Await(1000);
        m_text += 'h';
      },
      [&] { texts.insert(m_text); });
  EXPECT_THAT(texts, ElementsAre("aah", "aha"));
}

TEST_F(SchedulerTest, AKilledThreadNeverGoesOn) {
  Run([&] {
    const ThreadId writer = m_scheduler.Begin(
        "writer",
        [this] {
          m_text += 'a';
          Await(2);
          m_text += 'a';
        },
        true);
    Await(1);
    m_scheduler.Kill(writer);
    Await(2);
  });
  EXPECT_EQ(m_text, "a");
  EXPECT_EQ(m_scheduler.Kills(), 1);
}

TEST_F(SchedulerTest, ACrashEndsTheRunAndIsTold) {
  EXPECT_EQ(Run([this] {
              m_scheduler.Point("crashing");
              ::RaiseException(0xC0000005, 0, 0, nullptr);
            }),
            Ending::kCrash);
  EXPECT_THAT(m_scheduler.CrashText(),
              testing::AllOf(testing::StartsWith("exception C0000005"),
                             testing::EndsWith("(host), at crashing")));
}

TEST_F(SchedulerTest, KeepsEachThreadsLastError) {
  DWORD error = 0;
  Run([&] {
    m_scheduler.Begin("other", [] { ::SetLastError(7); }, false);
    ::SetLastError(5);
    Await(1);
    error = ::GetLastError();
  });
  EXPECT_EQ(error, 5u);
}

TEST(ScheduleTextTest, IsReadBack) {
  for (const char* const text : {"default", "3:1", "0:2 14:1 200:3"}) {
    const auto schedule = ParseSchedule(text);
    ASSERT_TRUE(schedule.has_value()) << text;
    EXPECT_EQ(ToText(*schedule), text);
  }
}

}  // namespace
}  // namespace kova::test
