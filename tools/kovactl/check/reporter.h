// How the process that runs the extension reports to the one that checks it.
#pragma once

#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "base/windows_api.h"
#include "check/finding.h"

namespace kova::ctl::check {

// Writes messages, one JSON object a line, to the process that started this
// one. Any number of threads may report at once.
class Reporter {
 public:
  // pipe  weak; the writing end.
  explicit Reporter(HANDLE pipe) : m_pipe(pipe) {}

  void Send(const nlohmann::ordered_json& message);

  // Sends a finding, the first time in a step that its flaw is seen in its
  // function. At once, because the extension may end the process next.
  void Report(const Finding& finding);

  // Begins a step; see step_list.h for the numbers.
  void BeginStep(size_t step);

  // The step did what it does. `note` is what there is to say when nothing is
  // wrong, UTF-8; may be empty.
  void EndStep(std::string note) { m_note = std::move(note); }
  // The step was left out, for the reason `note`.
  void SkipStep(std::string note) {
    m_note = std::move(note);
    m_skipped = true;
  }

  // Sends the end of the step: nothing more is found in it.
  void SendEnd();

  // One more request was handed over.
  void CountRequest();

 private:
  const HANDLE m_pipe;  // weak
  std::mutex m_mutex;
  std::set<std::pair<Flaw, Callee>> m_seen;  // in this step
  uint64_t m_requests = 0;                   // in this step
  std::string m_note;
  bool m_skipped = false;
  ULONGLONG m_progressMs = 0;
};

}  // namespace kova::ctl::check
