#include "logs/verb_log.h"

#include <memory>
#include <string>
#include <vector>

#include "common/utf8.h"
#include "common/verb.h"
#include "log/server_logger.h"
#include "logs/follow.h"
#include "logs/log_command.h"
#include "logs/log_mask.h"

namespace kova::ctl {
namespace {

constexpr uint32_t kMostSeconds = 24 * 60 * 60;

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl log show\n"
    "      every logger, its mask and where its channels go\n"
    "  kovactl log add DetailInfo DebuggerOutput\n"
    "      more to see, and on the debugger output\n"
    "  kovactl log follow --seconds 30\n"
    "      watch a running host for half a minute\n"
    "  kovactl log set default\n"
    "      back to errors, warnings and information";

constexpr char kFollowNotes[] =
    "Examples:\n"
    "  kovactl log follow --seconds 30\n"
    "  kovactl log follow --pid 4711 --all --json > lines.txt\n\n"
    "Lines come through the debugger output: only one program can read it at "
    "a\n"
    "time, lines are cut at 4 KiB, characters outside the ANSI code page are\n"
    "lost, and nothing comes from a process that runs in a debugger. To see\n"
    "hosts that run as services, use an administrator's prompt.";

struct Arguments {
  std::vector<std::string> words;
  std::string logger;
  FollowOptions follow;
  bool json = false;
};

std::string WordsHelp() {
  return "CHANNEL is one of Error, Warning, Info, DetailInfo, DetailInfoA to\n"
         "DetailInfoP; one of the switches DebuggerOutput (channels beyond\n"
         "Error and Warning reach the debugger output) and LogFile (all reach\n"
         "the log file); 0xHEX for any bits; all (every channel), default, or\n"
         "none. Case does not matter.";
}

struct Change {
  const char* name;
  const char* description;
  MaskAction action;
  const char* example;
};

constexpr Change kChanges[] = {
    {"set", "Make a logger's mask exactly these channels", MaskAction::kSet,
     "Example:\n  kovactl log set Error Warning LogFile\n"
     "      undo with: kovactl log set default\n\n"},
    {"add", "Add channels to a logger's mask", MaskAction::kAdd,
     "Example:\n  kovactl log add DetailInfo DebuggerOutput\n\n"},
    {"remove", "Take channels out of a logger's mask", MaskAction::kRemove,
     "Example:\n  kovactl log remove DebuggerOutput\n\n"},
};

void AddLogger(CLI::App& verb, Arguments& arguments, const char* text) {
  verb.add_option("--logger", arguments.logger, text)->type_name("NAME");
}

std::wstring LoggerName(const Arguments& arguments) {
  return arguments.logger.empty() ? kServerLoggerName
                                  : ToWide(arguments.logger);
}

void AddShow(CLI::App& log) {
  CLI::App* const verb =
      log.add_subcommand("show", "Show every logger's mask and sinks");
  const auto arguments = std::make_shared<Arguments>();
  AddLogger(*verb, *arguments, "Show this logger only");
  AddJsonFlag(*verb, arguments->json);
  verb->footer("Example:\n  kovactl log show --json");
  verb->callback([arguments] {
    EndVerb(ShowLog(ToWide(arguments->logger), arguments->json));
  });
}

void AddChange(CLI::App& log, const Change& change) {
  CLI::App* const verb = log.add_subcommand(change.name, change.description);
  const auto arguments = std::make_shared<Arguments>();
  verb->add_option("CHANNEL", arguments->words, "Channels and switches")
      ->required()
      ->type_name("");
  AddLogger(*verb, *arguments,
            "The logger to change (default: the server's own)");
  AddJsonFlag(*verb, arguments->json);
  verb->footer(change.example + WordsHelp());
  verb->callback([arguments, action = change.action] {
    std::vector<std::wstring> words;
    for (const std::string& word : arguments->words) {
      words.push_back(ToWide(word));
    }
    EndVerb(ChangeLog(action, words, LoggerName(*arguments), arguments->json));
  });
}

void AddFollow(CLI::App& log) {
  CLI::App* const verb = log.add_subcommand(
      "follow", "Show the lines of running hosts as they come");
  const auto arguments = std::make_shared<Arguments>();
  FollowOptions& options = arguments->follow;
  verb->add_option("--pid", options.filter.processId,
                   "Show lines of process N only")
      ->type_name("N");
  verb->add_flag("--all", options.filter.all,
                 "Show lines that are not the server's, too");
  verb->add_option("--seconds", options.seconds,
                   "Stop after N seconds (default: follow until Ctrl-C)")
      ->type_name("N")
      ->check(CLI::Range(0u, kMostSeconds).description(""));
  AddJsonFlag(*verb, options.json);
  verb->footer(kFollowNotes);
  verb->callback([arguments] { EndVerb(FollowLog(arguments->follow)); });
}

}  // namespace

void AddLogVerb(CLI::App& app) {
  CLI::App* const log =
      app.add_subcommand("log", "Show, change and follow what the server logs");
  log->require_subcommand(1);
  AddShow(*log);
  for (const Change& change : kChanges) AddChange(*log, change);
  AddFollow(*log);
  log->footer(kExamples + ("\n\n" + WordsHelp()));
}

}  // namespace kova::ctl
