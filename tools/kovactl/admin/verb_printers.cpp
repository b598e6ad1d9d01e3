#include <algorithm>
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
    "      exit code 1 if a request for it would be answered 400\n"
    "  kovactl printers --check\n"
    "      exit code 1 if that holds for any printer with an extension";

struct Arguments {
  bool json = false;
  bool check = false;
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

// The server takes the first printer of a share name.
void NoteTakenShare(const std::vector<PrinterName>& printers,
                    const PrinterName& printer,
                    std::vector<std::wstring>& remarks) {
  if (printer.share.empty()) return;
  const auto first =
      std::ranges::find_if(printers, [&printer](const PrinterName& other) {
        return EqualsNoCase(other.share, printer.share);
      });
  if (first->name == printer.name) return;
  remarks.push_back(L"the share name is also that of the printer \"" +
                    first->name + L"\", which gets its requests");
}

// One that has no package is not meant to answer, unless it was asked for.
bool IsJudged(const Row& row, const Arguments& arguments) {
  return !arguments.name.empty() || row.facts.package != PackageForm::kAbsent;
}

// What the rows come to, in one line.
struct Verdict {
  size_t judged = 0;
  size_t faulty = 0;
  std::wstring text;
};

Verdict Judge(const std::vector<Row>& rows, const Arguments& arguments) {
  Verdict verdict;
  for (const Row& row : rows) {
    if (!IsJudged(row, arguments)) continue;
    ++verdict.judged;
    verdict.faulty += row.diagnosis.HasFault() ? 1 : 0;
  }
  verdict.text = std::to_wstring(verdict.faulty) + L" of " +
                 std::to_wstring(verdict.judged) + L" printers cannot answer";
  if (const size_t others = rows.size() - verdict.judged; others > 0) {
    verdict.text +=
        L"; " + std::to_wstring(others) + L" without an extension not counted";
  }
  return verdict;
}

std::optional<Failure> Look(const std::string& name, std::vector<Row>& rows) {
  const WaitNotice notice(L"asking the print spooler");
  std::vector<PrinterName> printers;
  if (auto failure = ListPrinters(printers)) return failure;
  const std::vector<PrinterName> all = printers;
  if (!name.empty()) {
    if (auto failure = Choose(ToWide(name), printers)) return failure;
  }
  for (PrinterName& printer : printers) {
    PrinterFacts facts = LookAtPrinter(printer.name);
    Diagnosis diagnosis = Diagnose(facts);
    NoteTakenShare(all, printer, diagnosis.remarks);
    rows.push_back(
        {std::move(printer), std::move(facts), std::move(diagnosis)});
  }
  return std::nullopt;
}

void Show(const std::vector<Row>& rows, const Verdict& verdict,
          const Arguments& arguments) {
  if (arguments.json) {
    ShowJson({{"printers", JsonList(rows, &RowJson)},
              {"judged", verdict.judged},
              {"faulty", verdict.faulty},
              {"notSeen", ToUtf8(kNotSeen)}});
    return;
  }
  std::wstring text;
  for (const Row& row : rows) text += RowText(row) + L"\n";
  if (rows.empty()) text = L"The spooler knows no printers.\n\n";
  text += Wrapped(kNotSeen, 0);
  if (arguments.check) text += L"\n" + verdict.text + L".\n";
  ShowText(text);
}

void Run(const Arguments& arguments) {
  std::vector<Row> rows;
  EndVerb(Look(arguments.name, rows));
  const Verdict verdict = Judge(rows, arguments);
  Show(rows, verdict, arguments);
  if (verdict.faulty == 0) return;
  if (!arguments.name.empty()) {
    EndVerb(Failure{ExitCode::kInternalError,
                    L"requests for \"" + HarmlessLine(rows[0].printer.name) +
                        L"\" are answered 400: " + rows[0].diagnosis.fault});
  }
  if (arguments.check) {
    EndVerb(Failure{ExitCode::kInternalError, verdict.text});
  }
}

}  // namespace

void AddPrintersVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "printers", "Show the printers and why requests for them fail");
  const auto arguments = std::make_shared<Arguments>();
  verb->add_option("PRINTER", arguments->name, "One printer (default: all)")
      ->type_name("");
  verb->add_flag("--check", arguments->check,
                 "Fail if a printer that has an extension cannot answer");
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
