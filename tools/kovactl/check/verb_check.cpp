#include <memory>
#include <string>

#include "check/check_run.h"
#include "check/input_file.h"
#include "check/worker.h"
#include "common/file_path.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "common/wait_notice.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

using check::CheckOptions;
using check::CheckReport;

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl check-extension .\\mine\\Corvane_V3_NetMon.dll\n"
    "      try everything the server does to it, and more\n"
    "  kovactl check-extension .\\mine --printer \"Office 2\" --threads 32\n"
    "      the extension in that folder, for another printer, under more load\n"
    "  kovactl check-extension .\\mine --request a.http --request b.http\n"
    "      with requests of your own\n"
    "  kovactl check-extension .\\mine --json > report.json\n"
    "      for another program; exit code 0 without faults, 1 with faults";

// What the command line fills in.
struct Arguments {
  CheckOptions options;
  std::string path;
  std::vector<std::string> requestFiles;
  std::vector<std::string> only;
  bool json = false;
};

void AddOptions(CLI::App& verb, Arguments& arguments) {
  CheckOptions& options = arguments.options;
  verb.add_option("path", arguments.path,
                  "The extension's library, or the package folder it is in")
      ->type_name("PATH")
      ->required();
  verb.add_option("--printer", options.printer,
                  "Ask for this printer (default: Demo Printer)")
      ->type_name("NAME");
  verb.add_option("--request", arguments.requestFiles,
                  "Send the bytes of this file, too, and under load instead of "
                  "the usual requests; may be repeated")
      ->type_name("FILE")
      ->allow_extra_args(false);
  verb.add_option("--only", arguments.only,
                  "Do this step alone, called as in the JSON; may be repeated")
      ->type_name("STEP")
      ->allow_extra_args(false)
      ->check(CLI::Validator(
          [](const std::string& name) {
            return check::StepCalled(name) < check::kStepCount
                       ? std::string()
                       : "there is no step " + name;
          },
          ""));
  verb.add_option("--requests", options.requests,
                  "Watch the memory over N requests (default: 1000)")
      ->type_name("N")
      ->check(Limits(100, 10000000));
  verb.add_option("--threads", options.threads,
                  "Ask on N threads at once (default: 8)")
      ->type_name("N")
      ->check(Limits(2, check::kMostThreads));
  verb.add_option("--timeout", options.timeoutSeconds,
                  "Give each call N seconds to return (default: 10)")
      ->type_name("N")
      ->check(Limits(1, 3600));
  verb.add_option("--budget", options.budgetSeconds,
                  "End after N seconds, whatever is left (default: 60)")
      ->type_name("N")
      ->check(Limits(5, 86400));
  AddJsonFlag(verb, arguments.json);
}

std::wstring ProgramPath() { return ProgramFolder() + L"\\kovactl.exe"; }

CheckReport CheckWithNotice(const CheckOptions& options) {
  WaitNotice notice(L"checking " + options.library);
  return check::CheckExtension(options, [&notice](size_t step,
                                                  uint64_t requests) {
    std::string text = std::string("checking: ") + check::kSteps[step].title;
    if (requests > 0) text += ", request " + std::to_string(requests);
    notice.Say(ToWide(text));
  });
}

// Fills in what the paths mean. Why it cannot be checked, if so.
std::optional<Failure> Resolve(Arguments& arguments) {
  CheckOptions& options = arguments.options;
  options.library = check::LibraryPath(ToWide(arguments.path));
  options.program = ProgramPath();
  if (auto failure = check::CheckLibraryFile(options.library)) return failure;
  if (arguments.requestFiles.size() > check::kMostOwnRequests) {
    return Failure{ExitCode::kWrongUsage,
                   L"--request may be given " +
                       std::to_wstring(check::kMostOwnRequests) + L" times"};
  }
  if (!arguments.only.empty()) options.only = 0;
  for (const std::string& name : arguments.only) {
    options.only |= check::StepBit(check::StepCalled(name));
  }
  for (const std::string& file : arguments.requestFiles) {
    options.requestFiles.push_back(FullPath(ToWide(file)));
    if (auto failure = check::CheckRequestFile(options.requestFiles.back())) {
      return failure;
    }
  }
  return std::nullopt;
}

void Run(Arguments& arguments) {
  CheckReport report;
  report.failure = Resolve(arguments);
  if (report.failure) {
    report.library = ToUtf8(arguments.options.library);
  } else {
    report = CheckWithNotice(arguments.options);
  }
  if (arguments.json) {
    ShowJson(check::ReportJson(report));
  } else if (!report.failure) {
    ShowText(check::ReportText(report));
  }
  EndVerb(report.failure);
  if (report.Count(check::Severity::kFault) > 0) {
    throw CLI::RuntimeError(static_cast<int>(ExitCode::kInternalError));
  }
}

void AddWorkerVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "check-extension-worker", "The process that runs the extension");
  verb->group("");
  const auto state = std::make_shared<uint64_t>(0);
  verb->add_option("state", *state)->required();
  verb->callback([state] {
    if (check::RunWorker(*state)) return;
    EndVerb(Failure{ExitCode::kWrongUsage,
                    L"this verb is a part of check-extension; use that one"});
  });
}

}  // namespace

void AddCheckExtensionVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "check-extension", "Try an extension library and report its faults");
  const auto arguments = std::make_shared<Arguments>();
  AddOptions(*verb, *arguments);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
  AddWorkerVerb(app);
}

}  // namespace kova::ctl
