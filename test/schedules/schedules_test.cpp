// Whole: the built library under one schedule of its threads after another, on
// a modelled machine.
#include <gmock/gmock.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "test/schedules/scenarios.h"
#include "test/whole/rounds.h"

namespace kova::test {
namespace {

using testing::IsEmpty;

// "NAME SCHEDULE": this one alone is run, and told call by call.
constexpr char kReplay[] = "KOVA_SCHEDULE";
// At most so many schedules of a scenario, in the quick form and in the full.
constexpr int kQuickSchedules = 1500;
constexpr int kFullSchedules = 200000;
constexpr uint64_t kMostFailures = 1000;

std::string Describe(const ScheduleChooser& chooser,
                     const Scheduler& scheduler) {
  std::string text;
  const auto& choices = chooser.Choices();
  for (size_t i = 0; i < choices.size(); ++i) {
    const ScheduleChooser::Choice& choice = choices[i];
    if (choice.taken == 0) continue;
    text += "  at " + std::to_string(i) + ", " +
            scheduler[choice.current].name + " at " + choice.what + ": " +
            (choice.option.stalls
                 ? "stalled"
                 : scheduler[choice.option.thread].name + " goes on") +
            "\n";
  }
  return text;
}

struct Group {
  uint64_t schedules = 0;
  std::string first;
};

class SchedulesTest : public testing::TestWithParam<Scenario> {
 protected:
  static void SetUpTestSuite() { s_server = new ScheduledServer; }
  static void TearDownTestSuite() {
    delete s_server;
    s_server = nullptr;
  }
  void SetUp() override { ASSERT_TRUE(s_server->IsLoaded()); }

  // False if the environment names something else.
  bool Replay() {
    const char* const wanted = std::getenv(kReplay);
    if (wanted == nullptr) return false;
    const std::string text = wanted;
    const std::string name = text.substr(0, text.find(' '));
    const auto schedule = ParseSchedule(text.substr(text.find(' ') + 1));
    if (name != GetParam().name || !schedule.has_value()) return true;
    ScheduleChooser chooser(*schedule);
    const Verdict verdict = s_server->Run(GetParam(), chooser);
    EXPECT_TRUE(chooser.IsExhausted()) << "the run has no such points";
    std::printf("%s%s", Describe(chooser, Threads()).c_str(),
                s_server->Trace().c_str());
    EXPECT_THAT(verdict.faults, IsEmpty());
    return true;
  }

  bool RunOne(ScheduleChooser& chooser, const Schedule& schedule) {
    const Verdict verdict = s_server->Run(GetParam(), chooser);
    EXPECT_TRUE(chooser.IsExhausted())
        << "not the same again: " << ToText(schedule);
    if (verdict.longestStopMs > m_longestStopMs) {
      m_longestStopMs = verdict.longestStopMs;
      m_longestStop = ToText(schedule);
    }
    m_kills += verdict.kills > 0 ? 1 : 0;
    m_blocksLost = std::max(m_blocksLost, verdict.blocksLost);
    if (verdict.faults.empty()) return true;
    Group& group = m_groups[verdict.faults.front()];
    if (group.schedules++ == 0) {
      group.first = std::string(kReplay) + "=\"" + GetParam().name + " " +
                    ToText(schedule) + "\"\n" + Describe(chooser, Threads());
    }
    return ++m_failures < kMostFailures;
  }

  static Scheduler& Threads() { return s_server->TheMachine().scheduler; }

  static ScheduledServer* s_server;
  std::map<std::string, Group> m_groups;
  uint64_t m_failures = 0;
  uint64_t m_longestStopMs = 0;
  std::string m_longestStop;
  uint64_t m_kills = 0;
  size_t m_blocksLost = 0;
};

ScheduledServer* SchedulesTest::s_server = nullptr;

TEST_P(SchedulesTest, EndsAndLeavesNothingAndServesAgain) {
#if defined(_UCRT)
  GTEST_SKIP() << "the models do not know of the references to the library "
                  "that this C runtime holds for its threads";
#endif
  if (Replay()) return;
  Limits limits;
  limits.schedules =
      static_cast<uint64_t>(Rounds(kQuickSchedules, kFullSchedules));
  const auto start = std::chrono::steady_clock::now();
  const Explored explored =
      ExploreSchedules(limits, [this](ScheduleChooser& chooser) {
        return RunOne(chooser, chooser.Planned());
      });
  const std::chrono::duration<double> seconds =
      std::chrono::steady_clock::now() - start;
  std::printf(
      "%s: %llu schedules (%s), %llu with a killed thread, %.1f s; longest "
      "stop %llu ms (%s); at most %zu blocks lost\n",
      GetParam().name, static_cast<unsigned long long>(explored.runs),
      explored.isComplete ? "all" : "a sample",
      static_cast<unsigned long long>(m_kills), seconds.count(),
      static_cast<unsigned long long>(m_longestStopMs), m_longestStop.c_str(),
      m_blocksLost);
  for (const auto& [fault, group] : m_groups) {
    ADD_FAILURE() << fault << "\nin " << group.schedules
                  << " schedules; to replay the first: " << group.first;
  }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, SchedulesTest,
                         testing::ValuesIn(Scenarios().begin(),
                                           Scenarios().end()),
                         [](const auto& row) { return row.param.name; });

// What one run does must not hang on those before it.
TEST(ScheduledCallsTest, AScheduleIsTheSameEachTime) {
  ScheduledServer server;
  ASSERT_TRUE(server.IsLoaded());
  std::vector<std::string> traces;
  for (const char* const text : {"9:1 20:1", "default", "9:1 20:1"}) {
    ScheduleChooser chooser(*ParseSchedule(text));
    (void)server.Run(Scenarios().back(), chooser);
    traces.push_back(server.Trace());
  }
  EXPECT_EQ(traces[0], traces[2]);
  EXPECT_NE(traces[0], traces[1]);
}

TEST(ScheduledCallsTest, EveryCallThatWaitsIsUnderControl) {
  const ScheduledServer server;
  ASSERT_TRUE(server.IsLoaded());
  EXPECT_THAT(server.EscapingCalls(), IsEmpty());
}

}  // namespace
}  // namespace kova::test
