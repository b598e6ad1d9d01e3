// Unit: threads that change only where they say so, and the schedules that are
// tried with them.
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
  Ending Run(const std::function<void()>& host, Chooser& chooser) {
    m_text.clear();
    return m_scheduler.Run(host, chooser);
  }
  Ending RunDefault(const std::function<void()>& host) {
    ScheduleChooser chooser({});
    return Run(host, chooser);
  }
  // A thread that writes its letter once before and once after a point.
  void BeginWriter(char letter, bool mayStall = false) {
    m_scheduler.Begin(
        std::string(1, letter),
        [this, letter] {
          m_text += letter;
          m_scheduler.Point("writing");
          m_text += letter;
        },
        mayStall);
  }
  // All texts that come of two writers, under all schedules within the limits.
  std::set<std::string> TextsOfTwo(const Limits& limits) {
    std::set<std::string> texts;
    ExploreSchedules(limits, [&](ScheduleChooser& chooser) {
      const Ending ending = Run(
          [this] {
            BeginWriter('a');
            BeginWriter('b');
          },
          chooser);
      EXPECT_EQ(ending, Ending::kAllEnded);
      texts.insert(m_text);
      return true;
    });
    return texts;
  }

  Scheduler m_scheduler;
  std::string m_text;
};

TEST_F(SchedulerTest, AThreadGoesOnUntilItCannot) {
  EXPECT_EQ(RunDefault([this] {
              BeginWriter('a');
              BeginWriter('b');
              m_scheduler.Point("hosting");
              m_text += 'h';
            }),
            Ending::kAllEnded);
  EXPECT_EQ(m_text, "haabb");
}

TEST_F(SchedulerTest, EveryOrderIsTried) {
  EXPECT_THAT(TextsOfTwo({}),
              ElementsAre("aabb", "abab", "abba", "baab", "baba", "bbaa"));
}

TEST_F(SchedulerTest, OrdersBeyondTheLimitsAreNot) {
  EXPECT_THAT(TextsOfTwo({0, Limits::kAny}), ElementsAre("aabb", "bbaa"));
  EXPECT_THAT(TextsOfTwo({1, 0}), ElementsAre("aabb", "abba"));
  EXPECT_THAT(TextsOfTwo({0, 0}), ElementsAre("aabb"));
}

TEST_F(SchedulerTest, NoScheduleIsTriedTwice) {
  std::set<std::string> schedules;
  const Explored explored = ExploreSchedules({}, [&](ScheduleChooser& chooser) {
    Run(
        [this] {
          BeginWriter('a', true);
          BeginWriter('b', true);
        },
        chooser);
    EXPECT_TRUE(chooser.IsExhausted());
    schedules.insert(ToText(chooser.Planned()));
    return true;
  });
  EXPECT_TRUE(explored.isComplete);
  EXPECT_EQ(explored.runs, schedules.size());
  EXPECT_GT(explored.runs, 10u);
}

TEST_F(SchedulerTest, ASampleHasNoMoreThanItMay) {
  Limits limits;
  limits.schedules = 4;
  uint64_t runs = 0;
  const Explored explored =
      ExploreSchedules(limits, [&](ScheduleChooser& chooser) {
        ++runs;
        Run(
            [this] {
              BeginWriter('a');
              BeginWriter('b');
            },
            chooser);
        return true;
      });
  EXPECT_FALSE(explored.isComplete);
  EXPECT_EQ(explored.runs, runs);
  EXPECT_GE(runs, 3u);
  EXPECT_LE(runs, 4u);
}

TEST_F(SchedulerTest, ALostUpdateIsFoundByOnePreemption) {
  int failures = 0;
  ExploreSchedules({1, Limits::kAny}, [&](ScheduleChooser& chooser) {
    int counter = 0;
    const auto add = [&] {
      const int old = counter;
      m_scheduler.Point("adding");
      counter = old + 1;
    };
    Run(
        [&] {
          m_scheduler.Begin("first", add, false);
          m_scheduler.Begin("second", add, false);
          m_scheduler.Await("end",
                            [&] { return m_scheduler.AllOthersEnded(); });
        },
        chooser);
    if (counter != 2) ++failures;
    return true;
  });
  EXPECT_GT(failures, 0);
}

TEST_F(SchedulerTest, TwoWaitsForEachOtherAreADeadlock) {
  bool first = false;
  bool second = false;
  EXPECT_EQ(RunDefault([&] {
              m_scheduler.Begin(
                  "other",
                  [&] {
                    m_scheduler.Await("waiting for first",
                                      [&] { return first; });
                    second = true;
                  },
                  false);
              m_scheduler.Await("waiting for second", [&] { return second; });
              first = true;
            }),
            Ending::kDeadlock);
  EXPECT_EQ(m_scheduler.Standing(),
            "  0 host stands at waiting for second\n"
            "  1 other stands at waiting for first\n");
}

TEST_F(SchedulerTest, AThreadThatTurnsInCirclesIsNotWaitedFor) {
  EXPECT_EQ(RunDefault([this] {
              for (;;) m_scheduler.Point("turning");
            }),
            Ending::kLivelock);
}

TEST_F(SchedulerTest, TimePassesOnlyWhileNobodyCanRun) {
  uint64_t passedMs = 0;
  bool inTime = true;
  RunDefault([&] {
    const uint64_t startMs = m_scheduler.NowMs();
    BeginWriter('a');
    inTime = m_scheduler.Await("waiting", [] { return false; }, 700);
    passedMs = m_scheduler.NowMs() - startMs;
    m_text += 'h';
  });
  EXPECT_FALSE(inTime);
  EXPECT_EQ(passedMs, 700u);
  EXPECT_EQ(m_text, "aah");
}

TEST_F(SchedulerTest, AStalledThreadGoesOnLater) {
  bool wasLate = false;
  ExploreSchedules({1, 0}, [&](ScheduleChooser& chooser) {
    Run(
        [&] {
          BeginWriter('a', true);
          m_scheduler.Await("waiting", [] { return false; }, 1000);
          m_text += 'h';
        },
        chooser);
    wasLate |= m_text == "aha" && m_scheduler.Stalls().size() == 1;
    EXPECT_EQ(m_text.size(), 3u);
    return true;
  });
  EXPECT_TRUE(wasLate);
}

TEST_F(SchedulerTest, AKilledThreadNeverGoesOn) {
  ThreadId writer = kNoThread;
  RunDefault([&] {
    writer = m_scheduler.Begin(
        "writer",
        [this] {
          m_text += 'a';
          m_scheduler.Await("waiting", [] { return false; });
          m_text += 'a';
        },
        true);
    m_scheduler.Await("waiting", [] { return false; }, 1);
    m_scheduler.Kill(writer);
  });
  EXPECT_EQ(m_text, "a");
  EXPECT_TRUE(m_scheduler.HasEnded(writer));
  EXPECT_EQ(m_scheduler.Kills(), 1);
}

TEST_F(SchedulerTest, ACrashEndsTheRunAndIsTold) {
  EXPECT_EQ(RunDefault([this] {
              m_scheduler.Point("crashing");
              ::RaiseException(0xC0000005, 0, 0, nullptr);
            }),
            Ending::kCrash);
  EXPECT_THAT(m_scheduler.CrashText(),
              testing::AllOf(testing::StartsWith("exception C0000005"),
                             testing::EndsWith("(host), at crashing")));
  EXPECT_EQ(RunDefault([this] { BeginWriter('a'); }), Ending::kAllEnded);
  EXPECT_EQ(m_text, "aa");
}

TEST_F(SchedulerTest, KeepsEachThreadsLastError) {
  DWORD error = 0;
  RunDefault([&] {
    m_scheduler.Begin("other", [] { ::SetLastError(7); }, false);
    ::SetLastError(5);
    m_scheduler.Await("waiting", [] { return false; }, 1);
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
  for (const char* const text :
       {"", "x", "1", "1:0", "1;2", "3:1 3:1", "3:1 2:1", "3:1 x"}) {
    EXPECT_FALSE(ParseSchedule(text).has_value()) << text;
  }
}

}  // namespace
}  // namespace kova::test
