// The whole command line: verbs, help, version, wrong usage.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "base/windows_api.h"
// After the rest of Windows.
#include <shellapi.h>

#include "common/exit_code.h"
#include "common/output.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

// Which verb's help to point to after a mistake.
std::wstring HelpCommand(const CLI::App& app) {
  const auto verbs = app.get_subcommands();
  const std::string verb = verbs.empty() ? "" : verbs.front()->get_name() + " ";
  return L"kovactl " + ToWide(verb) + L"--help";
}

// The library words some mistakes on several lines.
std::wstring OneLine(const std::string& text) {
  std::wstring line = ToWide(text);
  std::replace(line.begin(), line.end(), L'\n', L' ');
  return line;
}

// An empty text means no name, no path and no number; taken for "not given" it
// would mean all of them.
void RefuseEmpty(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    const bool isEmptyOption =
        argument.starts_with("--") && argument.ends_with('=');
    if (argument.empty() || isEmptyOption) {
      throw CLI::ValidationError("an argument is empty");
    }
  }
}

int ShowHelp(const CLI::App& app, const CLI::ParseError& request) {
  std::ostringstream text;
  std::ostringstream errors;
  const int code = app.exit(request, text, errors);
  Output(STD_OUTPUT_HANDLE).Write(ToWide(text.str()));
  return code;
}

// The verb that the command line names, as in "settings set".
std::wstring VerbOf(const CLI::App& app) {
  std::wstring verb;
  for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    verb += (verb.empty() ? L"" : L" ") + ToWide(at->get_name());
  }
  return verb;
}

// What "--json" writes at the end. A log that is followed is lines, and only
// what ended it early is one more.
void ShowEnd(const CLI::App& app, int code, const std::wstring& error) {
  const std::wstring verb = VerbOf(app);
  const bool isLines = verb == L"log follow";
  if (isLines && error.empty()) return;
  ShowOutcome(verb, code, error, isLines ? -1 : 2);
}

// Carries out one command line; the process's exit code. `arguments` are UTF-8,
// without the program's name.
int RunCommandLine(std::vector<std::string> arguments) {
  CLI::App app("Runs and looks after the printers' HTTP server.");
  AddEveryVerb(app);
  app.set_version_flag("--version", "kovactl " KOVA_VERSION);
  const bool json = std::ranges::find(arguments, "--json") != arguments.end();
  ExitCode code = ExitCode::kSuccess;
  std::wstring error;
  try {
    RefuseEmpty(arguments);
    // The library takes its arguments from the back.
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
    if (app.get_subcommands().empty()) {
      throw CLI::RequiredError("say what to do, for instance: kovactl run",
                               CLI::ExitCodes::RequiredError);
    }
  } catch (const VerbError& failure) {
    code = static_cast<ExitCode>(failure.get_exit_code());
    error = failure.Text();
  } catch (const CLI::RuntimeError& ended) {
    code = static_cast<ExitCode>(ended.get_exit_code());
  } catch (const CLI::ParseError& mistake) {
    if (mistake.get_exit_code() == 0) return ShowHelp(app, mistake);
    code = ExitCode::kWrongUsage;
    error = OneLine(mistake.what()) + L"; " + HelpCommand(app) +
            L" lists what there is";
    WriteError(error);
  } catch (const std::exception& fault) {
    code = ExitCode::kInternalError;
    error = OneLine(fault.what());
    WriteError(error);
  }
  if (json) ShowEnd(app, static_cast<int>(code), error);
  return static_cast<int>(code);
}

}  // namespace
}  // namespace kova::ctl

// The narrow argument vector is in the ANSI code page, which cannot hold every
// path; the wide command line can.
int main() {
  int count = 0;
  wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; wide != nullptr && i < count; ++i) {
    arguments.push_back(kova::ctl::ToUtf8(wide[i]));
  }
  ::LocalFree(wide);
  try {
    return kova::ctl::RunCommandLine(std::move(arguments));
  } catch (const std::exception&) {
    // Nothing more can be written, for want of memory.
    return static_cast<int>(kova::ctl::ExitCode::kInternalError);
  }
}
