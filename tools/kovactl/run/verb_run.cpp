#include <memory>
#include <string>

#include "common/utf8.h"
#include "common/verb.h"
#include "run/borrowed_value.h"
#include "run/demo_printer.h"
#include "run/server_run.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

constexpr uint32_t kMostSeconds = 24 * 60 * 60;

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl run\n"
    "      run the server beside this program until Ctrl-C\n"
    "  kovactl run --demo --port 8080\n"
    "      with a demonstration printer, on another port for this run\n"
    "  kovactl run --demo --package .\\mine\n"
    "      with your own extension, .\\mine\\Corvane_V3_NetMon.dll\n"
    "  kovactl run --remove-demo\n"
    "      remove the demonstration printer again\n"
    "  kovactl run --demo --package .\\mine --watch --record .\\asked\n"
    "      the same, each build of it as it comes, and keep what is asked\n"
    "  kovactl run --verbose --seconds 10 --color always > log.txt\n"
    "      ten seconds of every log channel, coloured, into a file";

struct ColorWord {
  const char* word;
  ColorMode mode;
};

constexpr ColorWord kColorWords[] = {
    {"auto", ColorMode::kAuto},
    {"always", ColorMode::kAlways},
    {"never", ColorMode::kNever},
};

// Fills `mode` from one of the words above.
CLI::Validator ColorWords(ColorMode& mode) {
  return CLI::Validator(
      [&mode](std::string& text) {
        for (const ColorWord& row : kColorWords) {
          if (text != row.word) continue;
          mode = row.mode;
          return std::string();
        }
        return "\"" + text + "\" is not one of auto, always, never";
      },
      "");
}

// What the command line fills in, before it becomes RunOptions.
struct Arguments {
  RunOptions options;
  bool removeDemo = false;
  bool noBodies = false;
  std::string accessLog;
  std::string recordFolder;
  std::string library;
  std::string package;
  std::string color;
};

void AddOptions(CLI::App& verb, Arguments& arguments) {
  RunOptions& options = arguments.options;
  verb.add_option("--dll", arguments.library,
                  "The server's library (default: KOVAServer.dll beside this "
                  "program)")
      ->type_name("PATH");
  verb.add_option("--seconds", options.seconds,
                  "Stop after N seconds (default: run until Ctrl-C)")
      ->type_name("N")
      ->check(Limits(0, kMostSeconds));
  CLI::Option* const demo = verb.add_flag(
      "--demo", options.demo,
      "Make the printer \"Demo Printer\", shared as \"demo\", which the sample "
      "extension answers for; it stays installed until --remove-demo");
  verb.add_option("--package", arguments.package,
                  "Let this extension library, or the one in this folder, "
                  "answer for the demonstration printer")
      ->type_name("PATH")
      ->needs(demo);
  verb.add_option("--port", options.port,
                  "Listen on port N in this run; the setting is put back "
                  "afterwards")
      ->type_name("N")
      ->check(Limits(1, 65535));
  verb.add_flag("--remove-demo", arguments.removeDemo,
                "Run nothing; remove the demonstration printer and put back "
                "what runs that were cut off left changed")
      ->excludes(demo);
  verb.add_flag("--channels", options.channels,
                "Show the server's log lines, not only errors and warnings");
  verb.add_flag("--verbose", options.verbose,
                "Show the log lines of every channel");
  verb.add_option("--color", arguments.color,
                  "Colour the log: auto (on a terminal), always or never")
      ->type_name("WHEN")
      ->check(ColorWords(options.color));
}

void AddTrafficOptions(CLI::App& verb, Arguments& arguments) {
  verb.add_option("--access-log", arguments.accessLog,
                  "Add a line for each request to this file, in the combined "
                  "format of web servers")
      ->type_name("FILE");
  CLI::Option* const record =
      verb.add_option("--record", arguments.recordFolder,
                      "Keep each request and its answer in this folder, for "
                      "kovactl replay")
          ->type_name("FOLDER");
  verb.add_flag("--no-bodies", arguments.noBodies, "Keep their headers alone")
      ->needs(record);
  verb.add_flag("--watch", arguments.options.watch,
                "Let a rebuilt extension answer from the next request on; "
                "its file is never locked");
}

std::wstring RemovalText(DemoRemoval outcome) {
  switch (outcome) {
    case DemoRemoval::kRemoved:
      return L"The demonstration printer is removed.\n";
    case DemoRemoval::kNotThere:
      return L"There is no demonstration printer.\n";
    case DemoRemoval::kNotOurs:
      return L"The printer \"Demo Printer\" was not made by kovactl run "
             L"--demo; "
             L"it stays.\n";
  }
  return {};
}

void RemoveTraces() {
  for (const std::wstring& name : ReturnAbandonedValues()) {
    ShowText(L"\"" + name + L"\" is put back as it was before a run.\n");
  }
  DemoRemoval outcome = DemoRemoval::kNotThere;
  EndVerb(RemoveDemoPrinter(outcome));
  ShowText(RemovalText(outcome));
}

void Run(Arguments& arguments) {
  if (arguments.removeDemo) return RemoveTraces();
  arguments.options.library = ToWide(arguments.library);
  arguments.options.package = ToWide(arguments.package);
  TrafficOptions& traffic = arguments.options.traffic;
  traffic.accessLog = ToWide(arguments.accessLog);
  traffic.recordFolder = ToWide(arguments.recordFolder);
  traffic.withBodies = !arguments.noBodies;
  EndVerb(RunServer(arguments.options));
}

}  // namespace

void AddRunVerb(CLI::App& app) {
  CLI::App* const verb =
      app.add_subcommand("run",
                         "Run the server in this console and show its "
                         "log");
  const auto arguments = std::make_shared<Arguments>();
  AddOptions(*verb, *arguments);
  AddTrafficOptions(*verb, *arguments);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
