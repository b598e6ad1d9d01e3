#include "test/schedules/explorer.h"

#include <algorithm>
#include <random>
#include <sstream>
#include <utility>

namespace kova::test {
namespace {

using Choice = ScheduleChooser::Choice;

// A schedule, and how much of the limits it uses up.
struct Candidate {
  Schedule schedule;
  int preemptions = 0;
};

// Those that deviate once more, later than `from` does anywhere.
void AddLonger(const Limits& limits, const Candidate& from,
               const std::vector<Choice>& choices,
               std::vector<Candidate>& longer) {
  size_t point = from.schedule.empty() ? 0 : from.schedule.back().point + 1;
  for (; point < choices.size(); ++point) {
    Candidate next = from;
    next.preemptions += choices[point].isForced ? 0 : 1;
    if (next.preemptions > limits.preemptions) continue;
    next.schedule.push_back({point, 0});
    for (size_t option = 1; option < choices[point].options; ++option) {
      next.schedule.back().option = option;
      longer.push_back(next);
    }
  }
}

// Leaves a sample of at most `most`; whether there were more.
bool Thin(std::vector<Candidate>& candidates, uint64_t most) {
  if (candidates.size() <= most) return false;
  std::mt19937 random(1);  // the same each time
  std::shuffle(candidates.begin(), candidates.end(), random);
  candidates.resize(static_cast<size_t>(most));
  return true;
}

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

size_t ScheduleChooser::Choose(const std::vector<Option>& options,
                               ThreadId current, const char* what) {
  size_t taken = 0;
  if (!IsExhausted() && m_schedule[m_next].point == m_choices.size()) {
    taken = std::min(m_schedule[m_next].option, options.size() - 1);
    ++m_next;
  }
  m_choices.push_back({options.size(), taken, options[0].thread != current,
                       current, options[taken], what});
  return taken;
}

Explored ExploreSchedules(const Limits& limits,
                          const std::function<bool(ScheduleChooser&)>& run) {
  Explored explored;
  std::vector<Candidate> candidates(1);
  while (!candidates.empty()) {
    // A sample leaves room for schedules that deviate more often.
    const uint64_t left = limits.schedules - explored.runs;
    explored.isComplete &= !Thin(candidates, left - left / 4);
    std::vector<Candidate> longer;
    for (const Candidate& candidate : candidates) {
      ScheduleChooser chooser(candidate.schedule);
      ++explored.runs;
      if (!run(chooser)) return {explored.runs, false};
      AddLonger(limits, candidate, chooser.Choices(), longer);
    }
    candidates = std::move(longer);
  }
  return explored;
}

}  // namespace kova::test
