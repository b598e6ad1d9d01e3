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

// Carries out one command line; the process's exit code. `arguments` are UTF-8,
// without the program's name.
int RunCommandLine(std::vector<std::string> arguments) {
  CLI::App app("Runs and looks after the printers' HTTP server.");
  AddEveryVerb(app);
  app.set_version_flag("--version", "kovactl " KOVA_VERSION);
  try {
    RefuseEmpty(arguments);
    // The library takes its arguments from the back.
    std::reverse(arguments.begin(), arguments.end());
    app.parse(std::move(arguments));
    if (app.get_subcommands().empty()) {
      throw CLI::RequiredError("say what to do, for instance: kovactl run",
                               CLI::ExitCodes::RequiredError);
    }
    return static_cast<int>(ExitCode::kSuccess);
  } catch (const CLI::RuntimeError& failure) {
    return failure.get_exit_code();
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return ShowHelp(app, error);
    WriteError(OneLine(error.what()) + L"; " + HelpCommand(app) +
               L" lists what there is");
    return static_cast<int>(ExitCode::kWrongUsage);
  } catch (const std::exception& error) {
    WriteError(OneLine(error.what()));
    return static_cast<int>(ExitCode::kInternalError);
  }
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
  return kova::ctl::RunCommandLine(std::move(arguments));
}
