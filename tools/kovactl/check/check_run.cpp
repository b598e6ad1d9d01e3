#include "check/check_run.h"

#include <algorithm>
#include <chrono>

#include "check/extension_call.h"
#include "check/input_file.h"
#include "common/utf8.h"
#include "kova/extension.h"
#include "text/text_append.h"

namespace kova::ctl::check {
namespace {

using Json = nlohmann::json;

std::string Hex(uint64_t number) {
  std::wstring text = L"0x";
  AppendHex(text, number, 1, HexDigits::kUpper);
  return ToUtf8(text);
}

struct CodeName {
  uint32_t code;
  const char* name;
};

constexpr uint32_t kThrownByGcc = 0x20474343;
constexpr uint32_t kThrownByMsvc = 0xE06D7363;

constexpr CodeName kCodeNames[] = {
    {EXCEPTION_ACCESS_VIOLATION, "access violation"},
    {EXCEPTION_STACK_OVERFLOW, "stack overflow"},
    {EXCEPTION_INT_DIVIDE_BY_ZERO, "division by zero"},
    {EXCEPTION_ILLEGAL_INSTRUCTION, "illegal instruction"},
    {EXCEPTION_BREAKPOINT, "breakpoint"},
    {EXCEPTION_PRIV_INSTRUCTION, "privileged instruction"},
    {0xC0000374, "broken heap"},
    {0xC0000409, "fatal error raised by its runtime"},
};

std::string DescribeCode(uint32_t code) {
  const auto* const found =
      std::ranges::find(kCodeNames, code, &CodeName::code);
  const std::string name =
      found == std::end(kCodeNames) ? "" : std::string(found->name) + ", ";
  return name + "exception " + Hex(code);
}

std::string DescribeCrash(const CrashRecord& crash) {
  std::string text = DescribeCode(crash.code) + ", at " +
                     PlaceText(crash.module, crash.offset);
  if (crash.isAccess) {
    text += std::string(crash.isWrite ? ", writing to " : ", reading from ") +
            Hex(crash.accessed);
  }
  return text;
}

bool IsThrown(uint32_t code) {
  return code == kThrownByGcc || code == kThrownByMsvc;
}

// As people write it: small numbers in decimal, statuses in hexadecimal.
std::string ExitCodeText(uint32_t code) {
  constexpr uint32_t kLargest = 0xFFFF;
  return "exit code " + (code > kLargest ? Hex(code) : std::to_string(code));
}

Finding DeathFinding(const WorkerEnd& end, uint32_t timeoutSeconds) {
  using Kind = WorkerEnd::Kind;
  if (end.kind == Kind::kHung) {
    return {Flaw::kHang, end.callee,
            "after " + std::to_string(timeoutSeconds) + " s"};
  }
  if (end.kind == Kind::kEndedItself) {
    return {Flaw::kEndedProcess, end.callee, ExitCodeText(end.code)};
  }
  if (end.kind == Kind::kEndedThread) {
    return {Flaw::kEndedThread, end.callee, ""};
  }
  if (IsThrown(end.crash.code)) {
    return {Flaw::kException, end.callee, "thrown as " + Hex(end.crash.code)};
  }
  return {Flaw::kCrash, end.callee, DescribeCrash(end.crash)};
}

// Gathers what one worker after the other reports.
class Gatherer {
 public:
  Gatherer(const CheckOptions& options, const CheckProgress& onProgress)
      : m_options(options), m_onProgress(onProgress) {
    m_report.library = ToUtf8(options.library);
    CheckFileName();
  }

  CheckReport Run() {
    size_t deaths = 0;
    size_t first = kFirstRequestStep;
    const uint64_t deadlineMs =
        ::GetTickCount64() + uint64_t{m_options.budgetSeconds} * 1000;
    while (first < kStepCount && !m_report.failure) {
      const WorkerEnd end = RunWorkerProcess(
          m_options, first, deadlineMs, [this](const auto& lines) {
            for (const std::string& line : lines) Take(line);
          });
      if (end.kind == WorkerEnd::Kind::kFinished) {
        Finish();
        break;
      }
      if (end.kind == WorkerEnd::Kind::kNotStarted) {
        m_report.failure =
            SystemFailure(ExitCode::kInternalError,
                          L"cannot start the checker's process", end.code);
        break;
      }
      if (end.kind == WorkerEnd::Kind::kOutOfTime) {
        Settle("no time left; give it more with --budget");
        if (Current().verdict == StepVerdict::kGood) {
          Current().verdict = StepVerdict::kLeftOut;
        }
        break;
      }
      AddFinding(DeathFinding(end, m_options.timeoutSeconds));
      Settle("");
      if (m_step < kFirstRequestStep || ++deaths >= m_options.mostDeaths) break;
      first = m_step + 1;
    }
    return std::move(m_report);
  }

 private:
  void CheckFileName() {
    const std::wstring& path = m_options.library;
    const std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
    if (::lstrcmpiW(name.c_str(), KOVA_EXTENSION_FILE_NAME) != 0) {
      AddFinding({Flaw::kFileName, Callee::kNone, "it is " + ToUtf8(name)});
    }
  }

  // A worker that ended well, so it seems, has reached its last step, or has
  // ended the step that made the later ones senseless.
  void Finish() {
    if (m_isOpen && m_step != kEndStep && !m_report.failure) {
      AddFinding({Flaw::kEndedProcess, Callee::kOwnThread, "exit code 0"});
    }
    if (m_isOpen) Settle("");
  }

  // One message of a worker; what does not parse is left out.
  void Take(const std::string& line) {
    const Json message = Json::parse(line, nullptr, false);
    if (!message.is_object()) return;
    if (message.contains("begin")) Begin(message["begin"]);
    if (message.contains("progress")) m_onProgress(m_step, message["progress"]);
    if (message.contains("finding")) TakeFinding(message);
    if (message.contains("versions"))
      m_report.versions = message["versions"].get<std::vector<uint32_t>>();
    if (message.contains("restartCalls")) {
      m_report.restartCalls =
          std::max<uint32_t>(m_report.restartCalls, message["restartCalls"]);
    }
    if (message.contains("privateBytesGrowth")) {
      m_report.privateBytesGrowth = message["privateBytesGrowth"];
    }
    if (message.contains("requests")) Current().requests = message["requests"];
    if (message.contains("end")) Settle(message["end"]);
    if (message.contains("skip")) {
      Settle(message["skip"]);
      Current().verdict = StepVerdict::kLeftOut;
    }
    if (message.contains("cannotLoad")) {
      m_report.failure = CannotLoad(m_options.library, message["cannotLoad"]);
    }
  }

  void Begin(size_t step) {
    m_step = std::min(step, kEndStep);
    m_isOpen = true;
    m_onProgress(m_step, 0);
  }

  void TakeFinding(const Json& message) {
    const auto flaw = FlawWithCode(message["finding"].get<std::string>());
    if (!flaw) return;
    AddFinding({*flaw, static_cast<Callee>(message["entry"].get<uint32_t>()),
                message["detail"]});
  }

  void AddFinding(const Finding& finding) {
    auto known = std::ranges::find_if(
        m_report.findings, [&](const ReportedFinding& other) {
          return other.finding.flaw == finding.flaw &&
                 other.finding.callee == finding.callee;
        });
    if (known == m_report.findings.end()) {
      known = m_report.findings.insert(known, {finding, {}});
    }
    if (std::ranges::find(known->steps, m_step) == known->steps.end()) {
      known->steps.push_back(m_step);
    }
  }

  // Ends the current step with the verdict that its findings make.
  void Settle(std::string note) {
    m_isOpen = false;
    StepResult& step = Current();
    step.note = std::move(note);
    step.verdict = StepVerdict::kGood;
    for (const ReportedFinding& found : m_report.findings) {
      if (std::ranges::find(found.steps, m_step) == found.steps.end()) continue;
      const bool fault =
          KindOf(found.finding.flaw).severity == Severity::kFault;
      step.verdict = std::max(
          step.verdict, fault ? StepVerdict::kFault : StepVerdict::kWarning);
    }
  }

  StepResult& Current() { return m_report.steps[m_step]; }

  const CheckOptions& m_options;
  const CheckProgress& m_onProgress;
  CheckReport m_report;
  size_t m_step = 0;
  bool m_isOpen = false;  // the step has begun and not ended
};

}  // namespace

CheckReport CheckExtension(const CheckOptions& options,
                           const CheckProgress& onProgress) {
  const auto start = std::chrono::steady_clock::now();
  CheckReport report = Gatherer(options, onProgress).Run();
  report.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start)
          .count();
  return report;
}

}  // namespace kova::ctl::check
