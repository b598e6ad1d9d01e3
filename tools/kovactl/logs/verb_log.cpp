#include "verbs.h"

#include <memory>
#include <string>
#include <vector>

#include "common/plain_text.h"
#include "common/registry_value.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "log/server_logger.h"
#include "logs/follow.h"
#include "logs/log_mask.h"
#include "logs/mask_report.h"

namespace kova::ctl {
namespace {

std::optional<Failure> Read(std::vector<LoggerMask>& loggers) {
  const LSTATUS status = ReadLoggerMasks(loggers);
  if (status == ERROR_SUCCESS) return std::nullopt;
  return SystemFailure(ExitCode::kInternalError,
                       L"cannot read the log masks from the registry",
                       static_cast<unsigned long>(status));
}

Failure UnknownLogger(const std::vector<LoggerMask>& loggers,
                      const std::wstring& name) {
  std::vector<std::wstring> names = {kServerLoggerName};
  for (const LoggerMask& logger : loggers) names.push_back(logger.name);
  const std::wstring meant = HarmlessLine(NearName(name, names));
  return {ExitCode::kNotFound,
          L"there is no logger \"" + HarmlessLine(name) + L"\"; " +
              (meant.empty() ? L"kovactl log show lists all"
                             : L"did you mean \"" + meant +
                                   L"\"? (kovactl log show lists all)")};
}

// The row to work on: the registry's, or a fresh one of the server's logger.
std::optional<Failure> Find(const std::wstring& name, LoggerMask& found) {
  std::vector<LoggerMask> loggers;
  if (auto failure = Read(loggers)) return failure;
  if (const LoggerMask* logger = FindLogger(loggers, name)) {
    found = *logger;
    return std::nullopt;
  }
  found = {kServerLoggerName, {}};
  if (FindLogger({found}, name) != nullptr) return std::nullopt;
  return UnknownLogger(loggers, name);
}

// What a command line asks for.
struct Wish {
  MaskAction action = MaskAction::kSet;
  std::vector<std::wstring> words;
  std::wstring raw;  // a value as RawForm gives it, in place of the words
  std::wstring logger;
  bool json = false;
};

std::optional<Failure> NewRawValue(const Wish& wish, MaskUpdate& update) {
  const auto raw = ParseRawForm(wish.raw);
  if (!raw) {
    return Failure{ExitCode::kWrongUsage,
                   L"\"" + HarmlessLine(wish.raw) +
                       L"\" is no type and bytes; write for instance "
                       L"REG_DWORD:000000E0"};
  }
  update.now = {update.before.name, *raw};
  return std::nullopt;
}

std::optional<Failure> NewMask(const Wish& wish, uint32_t bits,
                               MaskUpdate& update) {
  const LoggerMask& logger = update.before;
  std::optional<uint32_t> before = logger.Mask();
  const bool isNew = !logger.value.present;
  if (!before && isNew) before = kServerLoggerDefaultMask;
  if (!before && wish.action != MaskAction::kSet) {
    return Failure{ExitCode::kInternalError,
                   L"the registry holds no readable mask of \"" +
                       HarmlessLine(logger.name) +
                       L"\"; give it one with kovactl log set"};
  }
  update.now = {logger.name,
                MaskValue(ChangedMask(wish.action, before.value_or(0), bits))};
  return std::nullopt;
}

std::optional<Failure> Write(const MaskUpdate& update) {
  const LSTATUS status = WriteLogger(update.now);
  if (status == ERROR_SUCCESS) return std::nullopt;
  return SystemFailure(ExitCode::kInternalError,
                       L"cannot write the log mask to the registry",
                       static_cast<unsigned long>(status));
}

// Shows the logger called `name` (case aside), or every logger if it is empty.
std::optional<Failure> ShowLog(const std::wstring& name, bool json) {
  std::vector<LoggerMask> loggers;
  if (auto failure = Read(loggers)) return failure;
  if (!name.empty()) {
    const LoggerMask* const logger = FindLogger(loggers, name);
    if (logger == nullptr) return UnknownLogger(loggers, name);
    loggers = std::vector<LoggerMask>{*logger};
  }
  if (json) {
    ShowJson(LoggersJson(loggers));
  } else {
    ShowText(LoggersText(loggers));
  }
  return std::nullopt;
}

// Changes that logger's mask and says what it did. Loggers that have no mask
// are refused, for their names would be typing errors; the server's is made.
std::optional<Failure> ChangeLog(const Wish& wish) {
  if (wish.words.empty() && wish.raw.empty()) {
    return Failure{ExitCode::kWrongUsage,
                   L"name channels; kovactl log --help lists them"};
  }
  const MaskWords read = ReadMaskWords(wish.action, wish.words);
  if (read.failure) return read.failure;
  MaskUpdate update;
  if (auto failure = Find(wish.logger, update.before)) return failure;
  if (auto failure = wish.raw.empty() ? NewMask(wish, read.bits, update)
                                      : NewRawValue(wish, update)) {
    return failure;
  }
  if (auto failure = Write(update)) return failure;
  if (wish.json) {
    ShowJson(UpdateJson(update));
  } else {
    ShowText(UpdateText(update));
  }
  return std::nullopt;
}

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
  std::string raw;
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
  CLI::Option* const words =
      verb->add_option("CHANNEL", arguments->words, "Channels and switches")
          ->type_name("");
  if (change.action == MaskAction::kSet) {
    verb->add_option("--raw", arguments->raw,
                     "Store exactly these bytes, to undo a change")
        ->type_name("TYPE:HEX")
        ->excludes(words);
  }
  AddLogger(*verb, *arguments,
            "The logger to change (default: the server's own)");
  AddJsonFlag(*verb, arguments->json);
  verb->footer(change.example + WordsHelp());
  verb->callback([arguments, action = change.action] {
    Wish wish{action,
              {},
              ToWide(arguments->raw),
              LoggerName(*arguments),
              arguments->json};
    for (const std::string& word : arguments->words) {
      wish.words.push_back(ToWide(word));
    }
    EndVerb(ChangeLog(wish));
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
      ->check(Limits(0, kMostSeconds));
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
