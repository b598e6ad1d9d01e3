// Runs something under one schedule after another.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "test/schedules/scheduler.h"

namespace kova::test {

// A choice that differs from the default one: at the `point`-th point of choice
// of a run, counted from 0, the `option`-th way is taken.
struct Deviation {
  size_t point = 0;
  size_t option = 0;
};
using Schedule = std::vector<Deviation>;

// "12:1 40:2"; the empty schedule is "default".
[[nodiscard]] std::string ToText(const Schedule& schedule);
[[nodiscard]] std::optional<Schedule> ParseSchedule(const std::string& text);

// How far from the default schedules may go.
struct Limits {
  // Choices that take the processor from a thread that could go on, stalls
  // among them.
  int preemptions = 2;
  // At most so many; where there are more, a sample that is the same each time.
  uint64_t schedules = ~uint64_t{0};
};

// Makes the choices of one run, and notes what there was to choose.
class ScheduleChooser : public Chooser {
 public:
  explicit ScheduleChooser(Schedule schedule = {})
      : m_schedule(std::move(schedule)) {}
  size_t Choose(const std::vector<Option>& options, ThreadId current,
                const char* what) override;

  struct Choice {
    size_t options = 0;
    size_t taken = 0;
    bool isForced = false;  // the running thread could not go on
    ThreadId current = kNoThread;
    Option option;
    const char* what = nullptr;
  };
  [[nodiscard]] const std::vector<Choice>& Choices() const { return m_choices; }
  [[nodiscard]] const Schedule& Planned() const { return m_schedule; }
  // Whether every deviation found a choice to be made.
  [[nodiscard]] bool IsExhausted() const { return m_next == m_schedule.size(); }

 private:
  const Schedule m_schedule;
  size_t m_next = 0;
  std::vector<Choice> m_choices;
};

struct Explored {
  uint64_t runs = 0;
  bool isComplete = true;  // nothing within the limits was left out
};

// Runs under the default schedule, then under all those with one deviation,
// with two, and so on within the limits. `run` makes one run and returns
// whether to go on.
Explored ExploreSchedules(const Limits& limits,
                          const std::function<bool(ScheduleChooser&)>& run);

}  // namespace kova::test
