#include <memory>

#include "admin/printer_diagnosis.h"
#include "base/ascii.h"
#include "common/plain_text.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "common/wait_notice.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl printers\n"
    "  kovactl printers \"Demo Printer\"\n"
    "      exit code 1 if a request for it would be answered 400";

struct Arguments {
  bool json = false;
  std::string name;
};

struct Row {
  PrinterName printer;
  PrinterFacts facts;
  Diagnosis diagnosis;
};

std::wstring RowText(const Row& row) {
  const auto& [printer, facts, diagnosis] = row;
  std::wstring text = HarmlessLine(printer.name);
  text += printer.share.empty()
              ? L" (not shared)\n"
              : L" (shared as \"" + HarmlessLine(printer.share) + L"\")\n";
  if (!facts.folder.empty()) {
    text += L"  package  " + HarmlessLine(facts.folder) + L"\n";
    text += L"  library  " + HarmlessLine(facts.libraryPath) + L"\n";
  }
  text +=
      diagnosis.HasFault()
          ? Wrapped(L"Requests are answered 400: " + diagnosis.fault + L".", 2)
          : L"  No fault can be seen.\n";
  for (const std::wstring& remark : diagnosis.remarks) {
    text += Wrapped(L"Note: " + HarmlessLine(remark) + L".", 2);
  }
  return text;
}

Json RowJson(const Row& row) {
  const auto& [printer, facts, diagnosis] = row;
  return {
      {"name", ToUtf8(printer.name)},
      {"share", ToUtf8(printer.share)},
      {"package", ToUtf8(facts.folder)},
      {"library", ToUtf8(facts.libraryPath)},
      {"fault", ToUtf8(diagnosis.word)},
      {"faultText", ToUtf8(diagnosis.fault)},
      {"remarks", JsonList(diagnosis.remarks)},
  };
}

// Leaves the one printer that is called `name`, whatever its letter case.
std::optional<Failure> Choose(const std::wstring& name,
                              std::vector<PrinterName>& printers) {
  for (const PrinterName& printer : printers) {
    if (!EqualsNoCase(printer.name, name)) continue;
    printers = {PrinterName(printer)};
    return std::nullopt;
  }
  return Failure{ExitCode::kNotFound,
                 L"there is no printer \"" + HarmlessLine(name) +
                     L"\"; kovactl printers lists all of them"};
}

std::optional<Failure> Look(const std::string& name, std::vector<Row>& rows) {
  const WaitNotice notice(L"asking the print spooler");
  std::vector<PrinterName> printers;
  if (auto failure = ListPrinters(printers)) return failure;
  if (!name.empty()) {
    if (auto failure = Choose(ToWide(name), printers)) return failure;
  }
  for (PrinterName& printer : printers) {
    PrinterFacts facts = LookAtPrinter(printer.name);
    Diagnosis diagnosis = Diagnose(facts);
    rows.push_back(
        {std::move(printer), std::move(facts), std::move(diagnosis)});
  }
  return std::nullopt;
}

void Show(const std::vector<Row>& rows, bool asJson) {
  if (asJson) {
    ShowJson({{"printers", JsonList(rows, &RowJson)},
              {"notSeen", ToUtf8(kNotSeen)}});
    return;
  }
  std::wstring text;
  for (const Row& row : rows) text += RowText(row) + L"\n";
  if (rows.empty()) text = L"The spooler knows no printers.\n\n";
  ShowText(text + Wrapped(kNotSeen, 0));
}

void Run(const Arguments& arguments) {
  std::vector<Row> rows;
  EndVerb(Look(arguments.name, rows));
  Show(rows, arguments.json);
  if (arguments.name.empty() || !rows[0].diagnosis.HasFault()) return;
  EndVerb(Failure{ExitCode::kInternalError,
                  L"requests for \"" + HarmlessLine(rows[0].printer.name) +
                      L"\" are answered 400: " + rows[0].diagnosis.fault});
}

}  // namespace

void AddPrintersVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "printers", "Show the printers and why requests for them fail");
  const auto arguments = std::make_shared<Arguments>();
  verb->add_option("PRINTER", arguments->name, "One printer (default: all)")
      ->type_name("");
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
