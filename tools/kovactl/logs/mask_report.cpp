#include "logs/mask_report.h"

#include "base/ascii.h"
#include "common/file_path.h"
#include "common/plain_text.h"
#include "common/utf8.h"
#include "log/log_channel.h"
#include "log/logger.h"
#include "log/server_logger.h"
#include "log/sinks.h"
#include "logs/log_mask.h"

namespace kova::ctl {
namespace {

Failure UnknownWord(const std::wstring& word) {
  const std::wstring meant = NearMaskName(word);
  return {ExitCode::kNotFound,
          L"there is no channel \"" + HarmlessLine(word) + L"\"; " +
              (meant.empty() ? L"kovactl log --help lists all"
                             : L"did you mean " + meant +
                                   L"? (kovactl log --help lists all)")};
}

bool IsNone(const std::wstring& word) { return EqualsNoCase(word, L"none"); }

constexpr size_t kIndent = 18;

std::wstring Row(const std::wstring& label, const std::wstring& text) {
  return LabelledRow(label, text, kIndent);
}

std::wstring HeadLine(const std::wstring& name, uint32_t mask) {
  const std::wstring isDefault =
      mask == kServerLoggerDefaultMask && name == kServerLoggerName
          ? L" (the default)"
          : L"";
  return HarmlessLine(name) + L": " + HexMask(mask) + isDefault + L"\n";
}

std::wstring DebuggerText(uint32_t mask) {
  const uint32_t reaching = ReachingDebugger(mask);
  std::wstring text = MaskText(reaching);
  if (reaching != ReachingEventLog(mask)) text += L" (DebuggerOutput is off)";
  return text;
}

std::wstring FileText(const std::wstring& name, uint32_t mask) {
  const std::wstring channels = MaskText(ReachingFile(mask));
  if ((mask & tk::kFileSinkOn) == 0) return channels + L" (LogFile is off)";
  return channels + L" -> " + HarmlessLine(LogFilePath(name));
}

// The file's ways surprise everybody who switches it on.
std::wstring FileRemark(const std::wstring& name, uint32_t mask) {
  if (ReachingFile(mask) == 0) return {};
  const std::wstring about =
      FileExists(LogFilePath(name))
          ? L"The file exists already, so nothing is written to it: delete it "
            L"to have it written anew with the next line."
          : L"The file is written once, with the next line: for a fresh one "
            L"delete it.";
  return Wrapped(about + L" Its host keeps every line in memory meanwhile.", 2);
}

std::wstring SinkRows(const std::wstring& name, uint32_t mask) {
  return Row(L"Event log", MaskText(ReachingEventLog(mask))) +
         Row(L"Debugger output", DebuggerText(mask)) +
         Row(L"Log file", FileText(name, mask)) + FileRemark(name, mask);
}

std::wstring NamelessRow(uint32_t mask) {
  if (NamelessBits(mask) == 0) return {};
  return Row(L"Unused bits", HexMask(NamelessBits(mask)));
}

std::wstring ValueText(const ValueState& value) {
  if (!value.present) return L"no value";
  return L"a value of type " + std::to_wstring(value.type) + L" and " +
         std::to_wstring(value.data.size()) +
         L" bytes, where loggers write a REG_DWORD";
}

// Empty for a value as loggers write it.
std::wstring OddValueText(const LoggerMask& logger) {
  if (logger.IsWellFormed()) return {};
  std::wstring text = L"The registry holds " + ValueText(logger.value);
  text += logger.Mask()
              ? L"; the logger takes its first bytes for the mask."
              : L"; a running logger keeps its mask and writes it back.";
  return Wrapped(text, 2);
}

Json HexOrNull(std::optional<uint32_t> mask) {
  return mask ? Json(ToUtf8(HexMask(*mask))) : Json(nullptr);
}

void AddSinks(Json& json, const std::wstring& name, uint32_t mask) {
  json["channels"] = JsonList(ChannelsOf(mask));
  json["switches"] = JsonList(SwitchesOf(mask));
  json["reaches"] = {
      {"eventLog", JsonList(ChannelsOf(ReachingEventLog(mask)))},
      {"debuggerOutput", JsonList(ChannelsOf(ReachingDebugger(mask)))},
      {"logFile", JsonList(ChannelsOf(ReachingFile(mask)))}};
  json["file"] = ToUtf8(LogFilePath(name));
}

std::wstring ValueRow(const LoggerMask& logger) {
  const std::optional<uint32_t> mask = logger.Mask();
  return mask ? HexMask(*mask) + L"  " + MaskText(*mask)
              : ValueText(logger.value);
}

}  // namespace

MaskWords ReadMaskWords(MaskAction action,
                        const std::vector<std::wstring>& words) {
  MaskWords result;
  for (const std::wstring& word : words) {
    const std::optional<uint32_t> bits = ParseMaskWord(word);
    if (!bits) return {0, UnknownWord(word)};
    if (IsNone(word) && (action != MaskAction::kSet || words.size() > 1)) {
      return {0, Failure{ExitCode::kWrongUsage,
                         L"\"none\" stands alone, as in kovactl log set none; "
                         L"leave it out here"}};
    }
    result.bits |= *bits;
  }
  return result;
}

uint32_t ChangedMask(MaskAction action, uint32_t mask, uint32_t bits) {
  if (action == MaskAction::kSet) return bits;
  return action == MaskAction::kAdd ? mask | bits : mask & ~bits;
}

std::wstring SetCommand(const std::wstring& logger, uint32_t mask) {
  return LogCommand(L"set", HexMask(mask), logger);
}

std::wstring LogCommand(const std::wstring& verb, const std::wstring& word,
                        const std::wstring& logger) {
  std::wstring command = L"kovactl log " + verb + L" " + word;
  if (logger == kServerLoggerName) return command;
  return command + L" --logger \"" + HarmlessLine(logger) + L"\"";
}

std::wstring LoggerText(const LoggerMask& logger) {
  const std::optional<uint32_t> mask = logger.Mask();
  if (!mask) {
    return HarmlessLine(logger.name) + L": unknown\n" + OddValueText(logger);
  }
  return HeadLine(logger.name, *mask) + OddValueText(logger) +
         SinkRows(logger.name, *mask) + NamelessRow(*mask);
}

std::wstring LoggersText(const std::vector<LoggerMask>& loggers) {
  if (loggers.empty()) {
    return Wrapped(
        L"No logger has a mask yet. The server's is made when the "
        L"server first runs, with " +
            HexMask(kServerLoggerDefaultMask) + L" (" +
            MaskText(kServerLoggerDefaultMask) + L").",
        0);
  }
  std::wstring text;
  for (const LoggerMask& logger : loggers) {
    if (!text.empty()) text += L"\n";
    text += LoggerText(logger);
  }
  return text;
}

Json LoggerJson(const LoggerMask& logger) {
  Json json;
  json["name"] = ToUtf8(logger.name);
  json["mask"] = HexOrNull(logger.Mask());
  json["wellFormed"] = logger.IsWellFormed();
  if (logger.Mask()) AddSinks(json, logger.name, *logger.Mask());
  return json;
}

Json LoggersJson(const std::vector<LoggerMask>& loggers) {
  return {
      {"key", "HKEY_LOCAL_MACHINE\\" + ToUtf8(kMaskKey)},
      {"loggers", JsonList(loggers, &LoggerJson)},
  };
}

std::optional<std::wstring> UndoCommand(const MaskUpdate& update) {
  // A command line has to fit the 8191 characters of a console.
  constexpr size_t kMostUndoBytes = 2000;
  const LoggerMask& before = update.before;
  if (before.IsWellFormed()) return SetCommand(before.name, *before.Mask());
  if (before.value.present) {
    if (before.value.data.size() > kMostUndoBytes) return std::nullopt;
    return LogCommand(L"set --raw", RawForm(before.value), before.name);
  }
  if (before.name != kServerLoggerName) return std::nullopt;
  return SetCommand(before.name, kServerLoggerDefaultMask);
}

std::wstring UpdateText(const MaskUpdate& update) {
  const std::wstring& name = update.before.name;
  std::wstring text = HarmlessLine(name) + L"\n";
  text += Row(L"Before", ValueRow(update.before));
  text += Row(L"Now", ValueRow(update.now));
  if (update.now.Mask()) text += SinkRows(name, *update.now.Mask());
  text +=
      Row(L"Takes effect", L"within " + std::to_wstring(kFollowsWithinMs) +
                               L" ms in a host that runs, else when it starts");
  const std::optional<std::wstring> undo = UndoCommand(update);
  // A command is copied as a whole, so it is not broken.
  return text + (undo ? L"  Undo with:      " + *undo + L"\n"
                      : Row(L"Undo with:", L"(no mask was there before)"));
}

Json UpdateJson(const MaskUpdate& update) {
  const std::optional<std::wstring> undo = UndoCommand(update);
  Json json;
  json["name"] = ToUtf8(update.before.name);
  json["before"] = HexOrNull(update.before.Mask());
  json["now"] = HexOrNull(update.now.Mask());
  if (update.now.Mask()) {
    AddSinks(json, update.before.name, *update.now.Mask());
  }
  json["takesEffectWithinMs"] = kFollowsWithinMs;
  json["undo"] = undo ? Json(ToUtf8(*undo)) : Json(nullptr);
  return json;
}

}  // namespace kova::ctl
