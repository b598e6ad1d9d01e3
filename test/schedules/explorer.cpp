#include "test/schedules/explorer.h"

#include <algorithm>
#include <sstream>

namespace kova::test {
namespace {

using Choice = ScheduleChooser::Choice;

// How much of the limits a schedule has used.
struct Used {
  int preemptions = 0;
  int switches = 0;
};

class Exploration {
 public:
  Exploration(const Limits& limits,
              const std::function<bool(ScheduleChooser&)>& run)
      : m_limits(limits), m_run(run) {}

  uint64_t Explore() {
    Visit({}, {});
    return m_runs;
  }

 private:
  // Runs one schedule and all those that go on from it.
  bool Visit(const Schedule& schedule, Used used) {
    ScheduleChooser chooser(schedule);
    ++m_runs;
    if (!m_run(chooser)) return false;
    const std::vector<Choice>& choices = chooser.Choices();
    if (schedule.empty()) MeasureStride(choices);
    size_t point = schedule.empty() ? 0 : schedule.back().point + 1;
    for (; point < choices.size(); ++point) {
      if (!Deviate(schedule, used, point, choices[point])) return false;
    }
    return true;
  }

  bool Deviate(const Schedule& schedule, Used used, size_t point,
               const Choice& choice) {
    int& count = choice.isForced ? used.switches : used.preemptions;
    if (++count > Most(choice)) return true;
    for (size_t option = 1; option < choice.options; ++option) {
      if (!schedule.empty() && IsPassedOver()) continue;
      Schedule longer = schedule;
      longer.push_back({point, option});
      if (!Visit(longer, used)) return false;
    }
    return true;
  }

  [[nodiscard]] int Most(const Choice& choice) const {
    return choice.isForced ? m_limits.switches : m_limits.preemptions;
  }

  // With n ways to deviate once there are about n * n / 2 to do so twice.
  void MeasureStride(const std::vector<Choice>& choices) {
    if (m_limits.schedules == 0) return;
    uint64_t once = 0;
    for (const Choice& choice : choices) {
      if (Most(choice) > 0) once += choice.options - 1;
    }
    const uint64_t left = std::max<uint64_t>(
        1, m_limits.schedules - std::min(once, m_limits.schedules - 1));
    m_stride = std::max<uint64_t>(1, once * once / 2 / left);
  }

  // All but one of m_stride schedules, not in equal steps: these could miss the
  // same kind of point each time.
  bool IsPassedOver() {
    constexpr uint64_t kFactor = 6364136223846793005;
    m_random = m_random * kFactor + 1442695040888963407;
    return (m_random >> 33) % m_stride != 0;
  }

  const Limits m_limits;
  const std::function<bool(ScheduleChooser&)>& m_run;
  uint64_t m_runs = 0;
  uint64_t m_stride = 1;
  uint64_t m_random = 1;
};

}  // namespace

std::string ToText(const Schedule& schedule) {
  if (schedule.empty()) return "default";
  std::string text;
  for (const Deviation& deviation : schedule) {
    if (!text.empty()) text += ' ';
    text += std::to_string(deviation.point) + ':' +
            std::to_string(deviation.option);
  }
  return text;
}

std::optional<Schedule> ParseSchedule(const std::string& text) {
  Schedule schedule;
  if (text == "default") return schedule;
  std::istringstream stream(text);
  Deviation deviation;
  char colon = 0;
  while (stream >> deviation.point >> colon >> deviation.option) {
    if (colon != ':' || deviation.option == 0) return std::nullopt;
    if (!schedule.empty() && schedule.back().point >= deviation.point) {
      return std::nullopt;
    }
    schedule.push_back(deviation);
  }
  if (!stream.eof() || schedule.empty()) return std::nullopt;
  return schedule;
}

ScheduleChooser::ScheduleChooser(Schedule schedule)
    : m_schedule(std::move(schedule)) {}

size_t ScheduleChooser::Choose(const std::vector<Option>& options,
                               bool isForced, ThreadId current,
                               const char* what) {
  size_t taken = 0;
  if (!IsExhausted() && m_schedule[m_next].point == m_choices.size()) {
    taken = std::min(m_schedule[m_next].option, options.size() - 1);
    ++m_next;
  }
  m_choices.push_back(
      {options.size(), taken, isForced, current, options[taken], what});
  return taken;
}

uint64_t ExploreSchedules(const Limits& limits,
                          const std::function<bool(ScheduleChooser&)>& run) {
  return Exploration(limits, run).Explore();
}

}  // namespace kova::test
