#include <cmath>
#include <memory>

#include "admin/http_exchange.h"
#include "admin/printer_diagnosis.h"
#include "admin/server_status.h"
#include "common/plain_text.h"
#include "common/registry_value.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "common/wait_notice.h"
#include "spooler/printers.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl probe \"Demo Printer\"\n"
    "  kovactl probe --share demo --port 8080 --timeout 5 --expect 200\n\n"
    "Exit code 0 if the extension answered, 10 if this server did not, 1 or 9\n"
    "if it answered 400 by itself; kovactl printers says more.";

struct Arguments {
  bool json = false;
  std::string printer;
  std::string share;
  std::optional<uint32_t> port;
  std::optional<uint32_t> expected;  // the extension's status; empty: any
  uint32_t seconds = 30;
};

// What was asked and what came of it.
struct Probe {
  std::wstring asked;   // the printer or share, for people
  std::wstring target;  // of the request
  uint32_t timeoutMs = 0;
  PortAnswer server;  // who has the port
  Exchange exchange;  // the request, or else how that was found
  bool isServersOwn = false;
  Diagnosis diagnosis;  // as the verb "printers" gives it
};

Diagnosis DiagnosePrinter(const Arguments& arguments) {
  std::wstring printer = ToWide(arguments.printer);
  if (!arguments.share.empty()) {
    printer = ShareNameToPrinterName(ToWide(arguments.share));
    if (printer.empty()) {
      return {
          L"no-share", L"the spooler knows no printer of that share name", {}};
    }
  }
  return Diagnose(LookAtPrinter(printer));
}

// What finding the server has left of the time.
uint32_t LeftMs(const Probe& probe) {
  const double left = probe.timeoutMs - probe.server.totalMs;
  return left < 1 ? 1 : static_cast<uint32_t>(left);
}

bool IsThisServer(const Probe& probe) {
  return probe.server.reach == Reach::kThisServer;
}

std::optional<Failure> Ask(const Arguments& arguments, Probe& probe) {
  const bool byShare = !arguments.share.empty();
  const std::wstring name =
      ToWide(byShare ? arguments.share : arguments.printer);
  probe.asked =
      (byShare ? L"share \"" : L"printer \"") + HarmlessLine(name) + L"\"";
  probe.target = (byShare ? L"/?share=" : L"/?printer=") + PercentEncoded(name);
  probe.timeoutMs = arguments.seconds * 1000;
  // Another program may have the port, and an answer for any name.
  const HostSearch search = arguments.port ? HostSearch() : FindHosts();
  if (auto failure = FindServer(arguments.port, search.hosts, probe.timeoutMs,
                                probe.server)) {
    return failure;
  }
  probe.exchange = probe.server.exchange;
  if (IsThisServer(probe)) {
    const WaitNotice notice(L"waiting for " + probe.asked);
    probe.exchange = SendGet(probe.server.port, probe.target, LeftMs(probe));
  }
  probe.isServersOwn = IsServersOwnAnswer(probe.exchange);
  probe.diagnosis = DiagnosePrinter(arguments);
  return std::nullopt;
}

bool IsAnswered(const Probe& probe) {
  return probe.exchange.end == ExchangeEnd::kAnswered;
}

bool IsExtensions(const Probe& probe) {
  return IsAnswered(probe) && IsThisServer(probe) && !probe.isServersOwn;
}

// "3.2 ms".
std::wstring MsText(double ms) {
  const auto tenths = static_cast<uint64_t>(std::llround(ms * 10));
  return std::to_wstring(tenths / 10) + L"." + std::to_wstring(tenths % 10) +
         L" ms";
}

std::wstring TimesText(const Exchange& exchange) {
  std::wstring text;
  if (exchange.connectMs) {
    text += L"connected after " + MsText(*exchange.connectMs) + L", ";
  }
  if (exchange.firstByteMs) {
    text += L"first byte after " + MsText(*exchange.firstByteMs) + L", ";
  }
  return text + L"all after " + MsText(exchange.totalMs);
}

const wchar_t* AnswererText(const Probe& probe) {
  if (!IsThisServer(probe)) return L"Another program";
  return probe.isServersOwn ? L"The server itself" : L"The extension";
}

const char* AnswererWord(const Probe& probe) {
  if (!IsThisServer(probe)) return "other";
  return probe.isServersOwn ? "server" : "extension";
}

std::wstring ProbeText(const Probe& probe) {
  std::wstring text = L"GET http://127.0.0.1:" +
                      std::to_wstring(probe.server.port) +
                      (IsThisServer(probe) ? probe.target : L"/") + L"\n";
  if (IsAnswered(probe)) {
    text += AnswererText(probe) + std::wstring(L" answered: status ") +
            std::to_wstring(probe.exchange.status) + L", " +
            BytesText(static_cast<size_t>(probe.exchange.bodyBytes)) +
            L" of body.\n";
  }
  text += Wrapped(L"Times: " + TimesText(probe.exchange) + L".", 0);
  if (IsExtensions(probe) && probe.diagnosis.HasFault()) {
    text += Wrapped(L"Note: what the host has loaded answers, though now " +
                        probe.diagnosis.fault + L".",
                    0);
  }
  return text;
}

Json MsJson(std::optional<double> ms) {
  return ms ? Json(std::round(*ms * 1000) / 1000) : Json(nullptr);
}

Json ProbeJson(const Probe& probe) {
  const Exchange& exchange = probe.exchange;
  const bool answered = IsAnswered(probe);
  return {
      {"port", probe.server.port},
      {"target", ToUtf8(probe.target)},
      {"reach", probe.server.reach},
      {"end", exchange.end},
      {"answeredBy", answered ? Json(AnswererWord(probe)) : Json(nullptr)},
      {"status", answered ? Json(exchange.status) : Json(nullptr)},
      {"bodyBytes", answered ? Json(exchange.bodyBytes) : Json(nullptr)},
      {"connectMs", MsJson(exchange.connectMs)},
      {"firstByteMs", MsJson(exchange.firstByteMs)},
      {"totalMs", MsJson(exchange.totalMs)},
      {"fault", ToUtf8(probe.diagnosis.word)},
      {"faultText", ToUtf8(probe.diagnosis.fault)},
  };
}

std::optional<Failure> JudgeExtension(const Probe& probe,
                                      std::optional<uint32_t> expected) {
  const uint32_t status = probe.exchange.status;
  if (!expected || *expected == status) return std::nullopt;
  return Failure{ExitCode::kInternalError,
                 L"the extension answered with status " +
                     std::to_wstring(status) + L" for " + probe.asked +
                     L", not with " + std::to_wstring(*expected)};
}

std::optional<Failure> Judge(const Probe& probe,
                             std::optional<uint32_t> expected) {
  if (probe.server.reach == Reach::kUnknown)
    return Failure{ExitCode::kNoAnswer, kPortUnknown};
  if (probe.server.reach == Reach::kOther) {
    return Failure{
        ExitCode::kNoAnswer,
        L"port " + std::to_wstring(probe.server.port) + kNotThisServer};
  }
  if (!IsAnswered(probe)) {
    return Failure{ExitCode::kNoAnswer,
                   EndText(probe.exchange, probe.server.port, probe.timeoutMs) +
                       L"; kovactl status says more"};
  }
  if (!probe.isServersOwn) return JudgeExtension(probe, expected);
  const std::wstring start =
      L"the server answered 400 for " + probe.asked + L": ";
  if (!probe.diagnosis.HasFault()) {
    return Failure{
        ExitCode::kInternalError,
        start +
            L"no fault can be seen from here; the server's log names it, or a "
            L"failed load lasts until its host process restarts"};
  }
  const bool isUnknown = probe.diagnosis.word == L"no-printer" ||
                         probe.diagnosis.word == L"no-share";
  return Failure{isUnknown ? ExitCode::kNotFound : ExitCode::kInternalError,
                 start + probe.diagnosis.fault};
}

void Run(const Arguments& arguments) {
  if (arguments.printer.empty() && arguments.share.empty()) {
    EndVerb(Failure{ExitCode::kWrongUsage,
                    L"name a printer, or a share with --share; kovactl "
                    L"printers lists them"});
  }
  Probe probe;
  EndVerb(Ask(arguments, probe));
  if (arguments.json) {
    ShowJson(ProbeJson(probe));
  } else {
    ShowText(ProbeText(probe));
  }
  EndVerb(Judge(probe, arguments.expected));
}

}  // namespace

void AddProbeVerb(CLI::App& app) {
  CLI::App* const verb =
      app.add_subcommand("probe", "Send one request to the running server");
  const auto arguments = std::make_shared<Arguments>();
  CLI::Option* const printer =
      verb->add_option("PRINTER", arguments->printer, "The printer's name")
          ->type_name("");
  verb->add_option("--share", arguments->share,
                   "Name the printer by its share instead")
      ->type_name("NAME")
      ->excludes(printer);
  verb->add_option("--expect", arguments->expected,
                   "Fail unless the extension answers with this status")
      ->type_name("STATUS")
      ->check(Limits(100, 599));
  AddPortOption(*verb, arguments->port);
  AddTimeoutOption(*verb, arguments->seconds);
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
