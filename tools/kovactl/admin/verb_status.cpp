#include "verbs.h"

#include <memory>

#include "admin/server_status.h"
#include "admin/setting.h"
#include "common/file_path.h"
#include "common/plain_text.h"
#include "common/time_text.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "log/log_channel.h"
#include "log/server_logger.h"
#include "log/sinks.h"
#include "logs/log_mask.h"
#include "logs/mask_report.h"

namespace kova::ctl {
namespace {

constexpr size_t kIndent = 2;

std::wstring PortText(const StatusFacts& facts) {
  return L"Port " + std::to_wstring(facts.answer.port);
}

std::wstring OtherText(const StatusFacts& facts) {
  const std::wstring other =
      L", so something else than this server seems to have it.";
  if (facts.answer.exchange.end == ExchangeEnd::kAnswered) {
    return PortText(facts) + L" answers with status " +
           std::to_wstring(facts.answer.exchange.status) +
           L", not as this server does" + other;
  }
  if (facts.answer.exchange.end == ExchangeEnd::kNoHttp) {
    return PortText(facts) + L" gives no HTTP answer" + other;
  }
  return PortText(facts) + L" gives no whole answer" + other;
}

bool IsSwitchedOff(const StatusFacts& facts) {
  for (const auto& [setting, stored] : facts.settings) {
    if (setting->id == SettingId::kTcpEnabled) {
      return EffectiveValue(*setting, stored) == 0U;
    }
  }
  return false;
}

std::wstring LoggerRows(const LoggerMask& logger) {
  std::wstring text = L"  " + HarmlessLine(logger.name) + L"\n";
  const std::optional<uint32_t> mask = logger.Mask();
  if (!mask) {
    return text + Wrapped(
                      L"What is stored is no mask; the logger replaces it "
                      L"by the mask it has.",
                      2 * kIndent);
  }
  text += L"    mask       " + HexMask(*mask) + L"\n";
  const struct {
    const wchar_t* label;
    uint32_t channels;
  } kSinks[] = {
      {L"    event log  ", ReachingEventLog(*mask)},
      {L"    debugger   ", ReachingDebugger(*mask)},
      {L"    log file   ", ReachingFile(*mask)},
  };
  for (const auto& sink : kSinks) {
    text += sink.label + MaskText(sink.channels) + L"\n";
  }
  if ((*mask & tk::kFileSinkOn) != 0) {
    text += L"               " + HarmlessLine(LogFilePath(logger.name)) + L"\n";
  }
  return text;
}

std::wstring LoggersText(const StatusFacts& facts) {
  std::wstring text = L"Log masks\n";
  if (FindLogger(facts.loggers, kServerLoggerName) == nullptr) {
    text +=
        L"  " + std::wstring(kServerLoggerName) + L"\n" +
        Wrapped(L"No mask is stored yet; the server stores its default, " +
                    HexMask(kServerLoggerDefaultMask) + L", when it starts.",
                2 * kIndent);
  }
  for (const LoggerMask& logger : facts.loggers) text += LoggerRows(logger);
  return text;
}

std::wstring SourcesText(const StatusFacts& facts) {
  std::wstring text = L"Event sources (\"Application\" log)\n";
  for (const EventSource& source : facts.sources) {
    text += L"  " + HarmlessLine(source.name) + L"\n";
    switch (source.form) {
      case SourceForm::kRegistered:
        text += L"    registered\n";
        break;
      case SourceForm::kNoMessageFile:
        text += Wrapped(L"registered, but the file of its texts is missing: " +
                            HarmlessLine(source.messageFile),
                        2 * kIndent);
        break;
      case SourceForm::kAbsent:
        text += L"    not registered\n";
        break;
    }
  }
  return text;
}

std::wstring Row(const std::wstring& label, const std::wstring& text) {
  constexpr size_t kRowIndent = 16;
  return LabelledRow(L"  " + label, text, kRowIndent);
}

std::wstring CountText(std::optional<uint64_t> count, const wchar_t* what) {
  return (count ? std::to_wstring(*count) : L"?") + what;
}

std::wstring ListenersText(const HostProcess& host) {
  std::wstring text;
  for (const Listener& listener : host.listeners) {
    text +=
        (text.empty() ? L"port " : L", port ") +
        std::to_wstring(listener.port) +
        (listener.isLocalOnly ? L" (this machine only)" : L" (all addresses)");
  }
  return text.empty() ? L"on no port" : text;
}

std::wstring MegabytesText(std::optional<uint64_t> bytes) {
  constexpr uint64_t kMegabyte = 1024 * 1024;
  if (!bytes) return L"? MB";
  return std::to_wstring((*bytes + kMegabyte / 2) / kMegabyte) + L" MB";
}

std::wstring HostText(const HostProcess& host) {
  const std::wstring version =
      host.version.empty() ? L"" : L", version " + host.version;
  return L"  " + HarmlessLine(FileName(host.program)) + L", process " +
         std::to_wstring(host.processId) + L"\n" +
         Row(L"user", HarmlessLine(host.user)) +
         Row(L"program", HarmlessLine(host.program)) +
         Row(L"library", HarmlessLine(host.library) + version) +
         Row(L"started",
             host.startFileTime ? LocalTimeText(*host.startFileTime) : L"") +
         Row(L"listens", ListenersText(host)) +
         Row(L"has", CountText(host.threads, L" threads, ") +
                         CountText(host.handles, L" handles, ") +
                         MegabytesText(host.privateBytes) +
                         L" of memory of its own");
}

std::wstring ConnectionsText(const StatusFacts& facts) {
  std::wstring text;
  for (const auto& [state, count] : facts.connections) {
    text +=
        (text.empty() ? L"" : L", ") + std::to_wstring(count) + L" " + state;
  }
  return text.empty() ? L"none" : text;
}

std::wstring HostsText(const StatusFacts& facts) {
  std::wstring text = L"Host processes\n";
  for (const HostProcess& host : facts.search.hosts) text += HostText(host);
  if (!facts.search.hosts.empty()) return text;
  text += L"  none has the server's library loaded\n";
  if (facts.search.unreadable > 0) {
    text += Wrapped(std::to_wstring(facts.search.unreadable) +
                        L" processes could not be looked into; an "
                        L"administrator's prompt shows more of them.",
                    kIndent);
  }
  return text;
}

std::wstring UnreadText(const StatusFacts& facts) {
  std::wstring text;
  for (const Setting* const setting : facts.unread) {
    text += Wrapped(L"\"" + std::wstring(setting->name) +
                        L"\" was changed since the host read it; it takes "
                        L"effect at the next start or restart.",
                    kIndent);
  }
  return text;
}

std::wstring KilobytesText(uint64_t bytes) {
  return Right(std::to_wstring((bytes + 1023) / 1024) + L" KB", 10);
}

std::wstring DumpsText(const StatusFacts& facts) {
  std::wstring text = L"Crash dumps\n";
  if (facts.dumps.empty()) {
    return text + L"  none\n";
  }
  std::wstring folder;
  for (const DumpFile& dump : facts.dumps) {
    const size_t name = dump.path.find_last_of(L"\\/") + 1;
    if (dump.path.substr(0, name) != folder) {
      folder = dump.path.substr(0, name);
      text += L"  " + HarmlessLine(folder) + L"\n";
    }
    text += L"    " + LocalTimeText(dump.writtenFileTime) +
            KilobytesText(dump.sizeBytes) + L"  " +
            HarmlessLine(dump.path.substr(name)) + L"\n";
  }
  if (facts.dumpCount > facts.dumps.size()) {
    text += L"  and " + std::to_wstring(facts.dumpCount - facts.dumps.size()) +
            L" older\n";
  }
  return text;
}

Json SourceJson(const EventSource& source) {
  return {
      {"name", ToUtf8(source.name)},
      {"state", source.form},
      {"messageFile", ToUtf8(source.messageFile)},
  };
}

Json DumpJson(const DumpFile& dump) {
  return {
      {"path", ToUtf8(dump.path)},
      {"sizeBytes", dump.sizeBytes},
      {"written", ToUtf8(UtcTimeText(dump.writtenFileTime))},
  };
}

Json HostJson(const HostProcess& host) {
  return {
      {"processId", host.processId},
      {"program", ToUtf8(host.program)},
      {"library", ToUtf8(host.library)},
      {"version", ToUtf8(host.version)},
      {"user", ToUtf8(host.user)},
      {"started", host.startFileTime
                      ? Json(ToUtf8(UtcTimeText(*host.startFileTime)))
                      : Json(nullptr)},
      {"threads", JsonOrNull(host.threads)},
      {"handles", JsonOrNull(host.handles)},
      {"privateBytes", JsonOrNull(host.privateBytes)},
      {"listeners", JsonList(host.listeners,
                             [](const Listener& listener) {
                               return Json{{"port", listener.port},
                                           {"localOnly", listener.isLocalOnly}};
                             })},
  };
}

Json ConnectionsJson(const StatusFacts& facts) {
  Json json = Json::object();
  for (const auto& [state, count] : facts.connections) {
    json[ToUtf8(state)] = count;
  }
  return json;
}

std::wstring ReachText(const StatusFacts& facts) {
  switch (facts.answer.reach) {
    case Reach::kThisServer:
      return PortText(facts) + L" answers as this server does.";
    case Reach::kOther:
      return OtherText(facts);
    case Reach::kSilent:
      return PortText(facts) +
             L" accepts connections, but did not answer within " +
             std::to_wstring((facts.timeoutMs + 999) / 1000) + L" s.";
    case Reach::kNothing:
      return L"Nothing listens on port " + std::to_wstring(facts.answer.port) +
             (IsSwitchedOff(facts) ? L": the setting \"TCP Enabled\" is off."
                                   : L".");
    case Reach::kUnknown:
      return L"The port setting is 0, so Windows picks the server's port at "
             L"every start, and no host process shows it.";
  }
  return {};
}

std::wstring StatusText(const StatusFacts& facts) {
  return L"Server\n" + Wrapped(ReachText(facts), kIndent) + UnreadText(facts) +
         LabelledRow(L"Connections:", ConnectionsText(facts), 15) + L"\n" +
         HostsText(facts) + L"\nSettings\n  " + SettingsKeyText() + L"\n" +
         SettingsText(facts.settings, kIndent) + L"\n" + LoggersText(facts) +
         L"\n" + SourcesText(facts) + L"\n" + DumpsText(facts);
}

Json StatusJson(const StatusFacts& facts) {
  return {
      {"port", facts.answer.port},
      {"reach", facts.answer.reach},
      {"reachText", ToUtf8(ReachText(facts))},
      {"connections", ConnectionsJson(facts)},
      {"hosts", JsonList(facts.search.hosts, &HostJson)},
      {"unreadableProcesses", facts.search.unreadable},
      {"unreadSettings",
       JsonList(facts.unread,
                [](const Setting* setting) { return ToUtf8(setting->name); })},
      {"key", ToUtf8(SettingsKeyText())},
      {"settings", JsonList(facts.settings, &SettingJson)},
      {"loggers", JsonList(facts.loggers, &LoggerJson)},
      {"eventSources", JsonList(facts.sources, &SourceJson)},
      {"dumpCount", facts.dumpCount},
      {"newestDumps", JsonList(facts.dumps, &DumpJson)},
  };
}

std::optional<Failure> StatusFailure(const StatusFacts& facts) {
  std::wstring text;
  switch (facts.answer.reach) {
    case Reach::kThisServer:
      return std::nullopt;
    case Reach::kNothing:
      text = L"nothing listens on port " + std::to_wstring(facts.answer.port) +
             (IsSwitchedOff(facts)
                  ? L"; kovactl settings set tcp on, and start the host again"
                  : L"; see that the server's host runs");
      break;
    case Reach::kOther:
    case Reach::kSilent:
      text = L"port " + std::to_wstring(facts.answer.port) + kNotThisServer;
      break;
    case Reach::kUnknown:
      text = kPortUnknown;
      break;
  }
  return Failure{ExitCode::kNoAnswer, text};
}

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl status\n"
    "  kovactl status --port 8080 --json\n\n"
    "Exit code 0 if the server answers on its port, 10 if not.";

struct Arguments {
  bool json = false;
  std::optional<uint32_t> port;
  uint32_t seconds = 5;
};

void Run(const Arguments& arguments) {
  StatusFacts facts;
  EndVerb(LookAtServer(arguments.port, arguments.seconds * 1000, facts));
  if (arguments.json) {
    ShowJson(StatusJson(facts));
  } else {
    ShowText(StatusText(facts));
  }
  EndVerb(StatusFailure(facts));
}

}  // namespace

void AddStatusVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "status", "Show whether the server answers, its settings and traces");
  const auto arguments = std::make_shared<Arguments>();
  AddPortOption(*verb, arguments->port);
  AddTimeoutOption(*verb, arguments->seconds);
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
