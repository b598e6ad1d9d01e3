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
    "  kovactl probe --share demo --port 8080 --timeout 5\n\n"
    "Exit code 0 if the extension answered, 10 if nobody did, 1 or 9 if the\n"
    "server itself answered 400; kovactl printers says more.";

struct Arguments {
  bool json = false;
  std::string printer;
  std::string share;
  std::optional<uint32_t> port;
  uint32_t seconds = 30;
};

// What was asked and what came of it.
struct Probe {
  std::wstring asked;   // the printer or share, for people
  std::wstring target;  // of the request
  uint16_t port = 0;
  uint32_t timeoutMs = 0;
  Exchange exchange;
  bool isServersOwn = false;
  Diagnosis diagnosis;  // as the verb "printers" gives it
};

std::optional<Failure> ChooseKnownPort(const Arguments& arguments,
                                       uint16_t& port) {
  if (auto failure = ChoosePort(arguments.port, port)) return failure;
  if (port != 0) return std::nullopt;
  return Failure{ExitCode::kNoAnswer,
                 L"the port setting is 0, so Windows picks the server's port "
                 L"at every start; name it with --port"};
}

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

Probe Ask(const Arguments& arguments, uint16_t port) {
  Probe probe;
  const bool byShare = !arguments.share.empty();
  const std::wstring name =
      ToWide(byShare ? arguments.share : arguments.printer);
  probe.asked =
      (byShare ? L"share \"" : L"printer \"") + HarmlessLine(name) + L"\"";
  probe.target = (byShare ? L"/?share=" : L"/?printer=") + PercentEncoded(name);
  probe.port = port;
  probe.timeoutMs = arguments.seconds * 1000;
  {
    const WaitNotice notice(L"waiting for port " + std::to_wstring(port));
    probe.exchange = SendGet(port, probe.target, probe.timeoutMs);
  }
  probe.isServersOwn = IsServersOwnAnswer(probe.exchange);
  probe.diagnosis = DiagnosePrinter(arguments);
  return probe;
}

bool IsAnswered(const Probe& probe) {
  return probe.exchange.end == ExchangeEnd::kAnswered;
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

// Only an extension that can be reached, as far as is seen, can have answered.
const wchar_t* AnswererText(const Probe& probe) {
  if (probe.isServersOwn) return L"The server itself";
  return probe.diagnosis.HasFault() ? L"Somebody" : L"The extension";
}

const char* AnswererWord(const Probe& probe) {
  if (probe.isServersOwn) return "server";
  return probe.diagnosis.HasFault() ? "somebody" : "extension";
}

std::wstring ProbeText(const Probe& probe) {
  std::wstring text = L"GET http://127.0.0.1:" + std::to_wstring(probe.port) +
                      probe.target + L"\n";
  if (IsAnswered(probe)) {
    text += AnswererText(probe) + std::wstring(L" answered: status ") +
            std::to_wstring(probe.exchange.status) + L", " +
            BytesText(static_cast<size_t>(probe.exchange.bodyBytes)) +
            L" of body.\n";
  }
  text += Wrapped(L"Times: " + TimesText(probe.exchange) + L".", 0);
  return text;
}

Json MsJson(std::optional<double> ms) {
  return ms ? Json(std::round(*ms * 1000) / 1000) : Json(nullptr);
}

Json ProbeJson(const Probe& probe) {
  const Exchange& exchange = probe.exchange;
  const bool answered = IsAnswered(probe);
  return {
      {"port", probe.port},
      {"target", ToUtf8(probe.target)},
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

std::optional<Failure> Judge(const Probe& probe) {
  if (!IsAnswered(probe)) {
    return Failure{ExitCode::kNoAnswer,
                   EndText(probe.exchange, probe.port, probe.timeoutMs) +
                       L"; kovactl status says more"};
  }
  if (!probe.isServersOwn) {
    if (!probe.diagnosis.HasFault()) return std::nullopt;
    return Failure{ExitCode::kInternalError,
                   L"an answer came for " + probe.asked + L", though " +
                       probe.diagnosis.fault +
                       L"; kovactl status says whether another program has "
                       L"the port"};
  }
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
  uint16_t port = 0;
  EndVerb(ChooseKnownPort(arguments, port));
  const Probe probe = Ask(arguments, port);
  if (arguments.json) {
    ShowJson(ProbeJson(probe));
  } else {
    ShowText(ProbeText(probe));
  }
  EndVerb(Judge(probe));
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
  AddPortOption(*verb, arguments->port);
  AddTimeoutOption(*verb, arguments->seconds);
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
