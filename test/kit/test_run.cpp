#include "test/kit/test_run.h"

#include <algorithm>
#include <charconv>

#include "base/ascii.h"
#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::test {
namespace {

constexpr unsigned kEndedByUs = 4660;
constexpr DWORD kToEndMs = 10000;
constexpr size_t kShortestName = 3;

// The number that `line` has behind `mark` at its start, if it sums up.
bool ReadSum(std::string_view line, std::string_view mark, int& number) {
  if (!line.starts_with(mark)) return false;
  line.remove_prefix(mark.size());
  const auto end =
      std::from_chars(line.data(), line.data() + line.size(), number);
  return end.ec == std::errc();
}

UniqueFile CreateLog(const std::filesystem::path& log) {
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  return UniqueFile(::CreateFileW(
      log.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
      &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// Ends all that is in it as soon as nobody holds it any more, this program
// being killed included.
UniqueKernelHandle MakeJob() {
  UniqueKernelHandle job(::CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  ::SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation,
                            &limits, sizeof(limits));
  return job;
}

}  // namespace

Counts CountTests(std::string_view output, unsigned exitCode) {
  Counts counts;
  while (!output.empty()) {
    const std::string_view line = output.substr(0, output.find('\n'));
    // Lines that name a test have no number there.
    (void)(ReadSum(line, "[  PASSED  ] ", counts.passed) ||
           ReadSum(line, "[  FAILED  ] ", counts.failed) ||
           ReadSum(line, "[  SKIPPED ] ", counts.skipped));
    output.remove_prefix(std::min(line.size() + 1, output.size()));
  }
  const bool isSummed = counts.passed + counts.failed + counts.skipped > 0;
  if (!isSummed || (exitCode != 0 && counts.failed == 0)) ++counts.failed;
  return counts;
}

unsigned RunProgram(const std::filesystem::path& program,
                    const std::filesystem::path& log, HANDLE stop,
                    unsigned long limitMs) {
  const UniqueFile output = CreateLog(log);
  const UniqueKernelHandle job = MakeJob();
  STARTUPINFOW start = {};
  start.cb = sizeof(start);
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = output.Get();
  start.hStdError = output.Get();
  std::wstring line = L"\"" + program.wstring() + L"\"";
  PROCESS_INFORMATION made = {};
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                        CREATE_SUSPENDED, nullptr,
                        program.parent_path().c_str(), &start, &made)) {
    return kEndedByUs;
  }
  const UniqueKernelHandle process(made.hProcess);
  const UniqueKernelHandle thread(made.hThread);
  ::AssignProcessToJobObject(job.Get(), process.Get());
  ::ResumeThread(thread.Get());
  const HANDLE either[] = {process.Get(), stop};
  if (::WaitForMultipleObjects(2, either, FALSE, limitMs) != WAIT_OBJECT_0) {
    ::TerminateJobObject(job.Get(), kEndedByUs);
    ::WaitForSingleObject(process.Get(), kToEndMs);
    return kEndedByUs;
  }
  DWORD code = kEndedByUs;
  ::GetExitCodeProcess(process.Get(), &code);
  return code;
}

std::string Anonymous(
    std::string text,
    const std::vector<std::pair<std::string, std::string>>& names) {
  const auto isSame = [](char left, char right) {
    return FoldAscii(left) == FoldAscii(right);
  };
  for (const auto& [name, instead] : names) {
    if (name.size() < kShortestName) continue;
    auto from = text.begin();
    for (;;) {
      const auto at =
          std::search(from, text.end(), name.begin(), name.end(), isSame);
      if (at == text.end()) break;
      const auto place = at - text.begin();
      text.replace(at, at + static_cast<ptrdiff_t>(name.size()), instead);
      from = text.begin() + place + static_cast<ptrdiff_t>(instead.size());
    }
  }
  return text;
}

}  // namespace kova::test
