// What a check came to.
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "check/finding.h"
#include "check/step_list.h"
#include "common/exit_code.h"

namespace kova::ctl::check {

enum class StepVerdict { kNotTried, kLeftOut, kGood, kWarning, kFault };

struct StepResult {
  StepVerdict verdict = StepVerdict::kNotTried;
  std::string note;  // UTF-8
  uint64_t requests = 0;
};

// One flaw of one function, with the steps that showed it.
struct ReportedFinding {
  Finding finding;
  std::vector<size_t> steps;
};

struct CheckReport {
  std::string library;  // full path, UTF-8
  std::array<StepResult, kStepCount> steps;
  std::vector<ReportedFinding> findings;  // in the order they were seen
  std::vector<uint32_t> versions;         // as offered; empty if not asked
  uint32_t restartCalls = 0;
  std::optional<int64_t> privateBytesGrowth;
  double seconds = 0;
  // Why nothing could be checked; the rest is empty then.
  std::optional<Failure> failure;

  [[nodiscard]] size_t Count(Severity severity) const;
  [[nodiscard]] uint64_t Requests() const;
};

// The report for people, at most 80 columns wide, ending in a line end; what is
// not a character is replaced.
std::wstring ReportText(const CheckReport& report);

// The report for programs.
nlohmann::ordered_json ReportJson(const CheckReport& report);

}  // namespace kova::ctl::check
