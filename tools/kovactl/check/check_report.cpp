#include "check/check_report.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

#include "common/utf8.h"

namespace kova::ctl::check {
namespace {

constexpr size_t kColumns = 80;
constexpr size_t kTitleColumns = 39;

const char* VerdictWord(StepVerdict verdict) {
  constexpr const char* kWords[] = {"not tried", "left out", "ok", "warning",
                                    "fault"};
  return kWords[static_cast<size_t>(verdict)];
}

std::string Padded(std::string text, size_t columns) {
  text.resize(std::max(text.size(), columns), ' ');
  return text;
}

// `text` in lines that fit, the first one after `head`, the others indented as
// far as `head` is long. A word that fits no line is left whole.
std::string Wrapped(const std::string& head, const std::string& text) {
  std::string lines = head;
  size_t column = head.size();
  size_t at = 0;
  while (at < text.size()) {
    const size_t end = std::min(text.find(' ', at), text.size());
    const std::string word = text.substr(at, end - at);
    if (column > head.size() && column + 1 + word.size() > kColumns) {
      lines += "\n" + std::string(head.size(), ' ');
      column = head.size();
    } else if (column > head.size()) {
      lines += ' ';
      ++column;
    }
    lines += word;
    column += word.size();
    at = end + 1;
  }
  lines.erase(lines.find_last_not_of(' ') + 1);
  return lines + "\n";
}

// Digits in groups of three.
std::string Grouped(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, ",");
  return text;
}

std::string Counted(uint64_t count, const std::string& one) {
  return Grouped(count) + " " + one + (count == 1 ? "" : "s");
}

std::string Seconds(double seconds) {
  char text[32] = {};
  static_cast<void>(std::snprintf(text, sizeof(text), "%.1f s", seconds));
  return text;
}

std::string StepLines(const CheckReport& report) {
  std::string lines;
  for (size_t i = 0; i < kStepCount; ++i) {
    const StepResult& step = report.steps[i];
    if (step.verdict == StepVerdict::kNotTried) continue;
    if (i == kOwnStep && step.verdict == StepVerdict::kLeftOut) continue;
    lines += Wrapped("  " + Padded(VerdictWord(step.verdict), 9) +
                         Padded(kSteps[i].title, kTitleColumns),
                     step.note);
  }
  return lines;
}

std::string NotTried(const CheckReport& report) {
  const auto count = std::ranges::count(report.steps, StepVerdict::kNotTried,
                                        &StepResult::verdict);
  if (count == 0) return {};
  return "  " + Counted(static_cast<uint64_t>(count), "further step") +
         " not tried\n";
}

std::string StepNames(const std::vector<size_t>& steps) {
  constexpr size_t kMost = 3;
  std::string names;
  for (size_t i = 0; i < std::min(steps.size(), kMost); ++i) {
    names += (i == 0 ? "" : ", ") + std::string(kSteps[steps[i]].title);
  }
  if (steps.size() > kMost) {
    names += ", and " + std::to_string(steps.size() - kMost) + " more";
  }
  return names;
}

// What did not happen while requests came one at a time points to shared state.
bool OnlyWithThreads(const std::vector<size_t>& steps) {
  return std::ranges::all_of(steps, [](size_t step) {
    const std::string_view name = kSteps[step].name;
    return name == "threads" || name == "interleave";
  });
}

std::string FindingLines(const ReportedFinding& found) {
  const FlawKind& kind = KindOf(found.finding.flaw);
  const bool fault = kind.severity == Severity::kFault;
  std::string lines = Wrapped(fault ? "FAULT    " : "WARNING  ",
                              std::string(kind.title) + " [" + kind.code + "]");
  if (found.finding.callee != Callee::kNone) {
    lines += Wrapped("  where  ", CalleeName(found.finding.callee));
  }
  if (!found.finding.detail.empty()) {
    lines += Wrapped("  seen   ", found.finding.detail);
  }
  lines += Wrapped("  in     ", StepNames(found.steps));
  lines += Wrapped("  client ", kind.client);
  lines += Wrapped("  do     ", kind.advice);
  if (OnlyWithThreads(found.steps)) {
    lines += Wrapped("         ",
                     "Not seen while requests came one at a time: look for "
                     "what the threads share.");
  }
  return lines + "\n";
}

std::string Summary(const CheckReport& report) {
  std::string lines;
  if (report.restartCalls > 0) {
    lines = "It called the restart routine " +
            Counted(report.restartCalls, "time") + ", which it may.\n";
  }
  return lines + Counted(report.Count(Severity::kFault), "fault") + ", " +
         Counted(report.Count(Severity::kWarning), "warning") + "; " +
         Counted(report.Requests(), "request") + " in " +
         Seconds(report.seconds) + ".\n";
}

// Foreign text must not command a terminal.
std::wstring Harmless(std::wstring text) {
  for (wchar_t& c : text) {
    if ((c < 0x20 && c != L'\n') || (c >= 0x7F && c < 0xA0)) c = L'\xFFFD';
  }
  return text;
}

nlohmann::ordered_json FindingJson(const ReportedFinding& found) {
  const FlawKind& kind = KindOf(found.finding.flaw);
  nlohmann::ordered_json steps = nlohmann::ordered_json::array();
  for (const size_t step : found.steps) steps.push_back(kSteps[step].name);
  const bool hasCallee = found.finding.callee != Callee::kNone;
  return {{"code", kind.code},
          {"severity", kind.severity == Severity::kFault ? "fault" : "warning"},
          {"title", kind.title},
          {"entry",
           hasCallee ? nlohmann::ordered_json(CalleeName(found.finding.callee))
                     : nlohmann::ordered_json()},
          {"detail", found.finding.detail},
          {"steps", steps},
          {"client", kind.client},
          {"advice", kind.advice}};
}

const char* VerdictOf(const CheckReport& report) {
  if (report.failure) return "failed";
  if (report.Count(Severity::kFault) > 0) return "faults";
  return report.Count(Severity::kWarning) > 0 ? "warnings" : "ok";
}

}  // namespace

size_t CheckReport::Count(Severity severity) const {
  return static_cast<size_t>(
      std::ranges::count_if(findings, [&](const ReportedFinding& found) {
        return KindOf(found.finding.flaw).severity == severity;
      }));
}

uint64_t CheckReport::Requests() const {
  return std::accumulate(
      steps.begin(), steps.end(), uint64_t{0},
      [](uint64_t sum, const StepResult& step) { return sum + step.requests; });
}

std::wstring ReportText(const CheckReport& report) {
  std::string text = "Checked " + report.library + "\n\n" + StepLines(report) +
                     NotTried(report) + "\n";
  for (const Severity severity : {Severity::kFault, Severity::kWarning}) {
    for (const ReportedFinding& found : report.findings) {
      if (KindOf(found.finding.flaw).severity == severity) {
        text += FindingLines(found);
      }
    }
  }
  return Harmless(ToWide(text + Summary(report)));
}

nlohmann::ordered_json ReportJson(const CheckReport& report) {
  nlohmann::ordered_json steps = nlohmann::ordered_json::array();
  for (size_t i = 0; i < kStepCount; ++i) {
    const StepResult& step = report.steps[i];
    steps.push_back({{"name", kSteps[i].name},
                     {"verdict", VerdictWord(step.verdict)},
                     {"note", step.note},
                     {"requests", step.requests}});
  }
  nlohmann::ordered_json findings = nlohmann::ordered_json::array();
  for (const ReportedFinding& found : report.findings) {
    findings.push_back(FindingJson(found));
  }
  nlohmann::ordered_json growth;
  if (report.privateBytesGrowth) growth = *report.privateBytesGrowth;
  nlohmann::ordered_json failure;
  if (report.failure) failure = ToUtf8(report.failure->text);
  return {{"library", report.library},
          {"verdict", VerdictOf(report)},
          {"failure", failure},
          {"faults", report.Count(Severity::kFault)},
          {"warnings", report.Count(Severity::kWarning)},
          {"versions", report.versions},
          {"requests", report.Requests()},
          {"restartCalls", report.restartCalls},
          {"privateBytesGrowth", growth},
          {"seconds", report.seconds},
          {"steps", steps},
          {"findings", findings}};
}

}  // namespace kova::ctl::check
