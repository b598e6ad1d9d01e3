// Whole: what is seen of printers of the real spooler and their libraries, and
// kovactl.exe printers as a child.
#include "admin/printer_diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "common/program_run.h"
#include "spooler/printers.h"
#include "test/support/demo_printer.h"
#include "test/support/import_patch.h"
#include "test/support/server_fixture.h"
#include "test/support/test_extension.h"

namespace {

using ::kova::ctl::Diagnose;
using ::kova::ctl::ListPrinters;
using ::kova::ctl::LookAtPrinter;
using ::kova::ctl::PackageForm;
using ::kova::ctl::PrinterName;
using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::kova::test::DemoPrinter;
using ::kova::test::ExtensionFolder;
using ::kova::test::TestProgramFolder;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr wchar_t kName[] = L"Facts Printer";

class PrinterFactsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_printer.IsInstalled()); }

  [[nodiscard]] std::wstring Word() const {
    return Diagnose(LookAtPrinter(kName)).word;
  }
  std::wstring WordFor(const std::wstring& folder) {
    EXPECT_TRUE(m_printer.SetDriverPackage(folder));
    return Word();
  }
  std::wstring WordForData(DWORD type, const std::wstring& data) {
    EXPECT_TRUE(m_printer.SetDriverPackageData(
        type, data.c_str(), static_cast<DWORD>(2 * data.size() + 2)));
    // The server must come to the same conclusion.
    EXPECT_EQ(GetDriverPackagePath(kName).empty(),
              LookAtPrinter(kName).package != PackageForm::kFolder);
    return Word();
  }

  DemoPrinter m_printer{kName, L"facts"};
};

TEST_F(PrinterFactsTest, ExplainsWhyThereIsNoPackage) {
  EXPECT_EQ(Word(), L"no-package");
  EXPECT_EQ(WordForData(REG_SZ, L""), L"package-empty");
  EXPECT_EQ(WordForData(REG_BINARY, L"C:\\Pkg"), L"package-type");
  EXPECT_EQ(WordForData(REG_EXPAND_SZ, L"C:\\Pkg"), L"package-type");
  EXPECT_EQ(WordForData(REG_SZ, std::wstring(2048, L'x')), L"package-too-long");
  EXPECT_EQ(WordForData(REG_SZ, std::wstring(4000, L'x')), L"package-too-long");
  EXPECT_EQ(WordForData(REG_SZ, std::wstring(2047, L'x')), L"folder-relative");
  EXPECT_EQ(Diagnose(LookAtPrinter(L"No Such Printer")).word, L"no-printer");
}

BOOL WINAPI OpenNoPrinter(LPWSTR, HANDLE*, PRINTER_DEFAULTSW*) {
  ADD_FAILURE() << "opened";
  return FALSE;
}

// As the server: the other machine is not asked what it would have loaded.
TEST_F(PrinterFactsTest, APrinterOfAMachineNobodyConnectedToIsUnknown) {
  const ::kova::test::ImportPatch<decltype(::OpenPrinterW)> patch(
      nullptr, "OpenPrinterW", &OpenNoPrinter);
  EXPECT_EQ(Diagnose(LookAtPrinter(L"\\\\evil\\queue")).word, L"no-printer");
}

TEST_F(PrinterFactsTest, ExplainsWhyThereIsNoLibrary) {
  EXPECT_EQ(WordFor(L"C:\\nowhere"), L"no-folder");
  EXPECT_EQ(WordFor(L"C:\\nowhere\\at all"), L"no-folder");
  EXPECT_EQ(WordFor(L"C:\\windows"), L"no-library");
  EXPECT_EQ(WordFor(L"windows"), L"folder-relative");
  EXPECT_EQ(WordFor(L"C:windows"), L"folder-relative");
  EXPECT_EQ(WordFor(TestProgramFolder() + L"\\no\\Corvane_V3_NetMon.dll"),
            L"no-folder");
}

TEST_F(PrinterFactsTest, LooksIntoTheLibrary) {
  EXPECT_EQ(WordFor(ExtensionFolder(L"scripted")), L"none");
  EXPECT_EQ(WordFor(ExtensionFolder(L"scripted") + L"\\"), L"none");
  EXPECT_EQ(WordFor(ExtensionFolder(L"no_versions")), L"no-versions-export");
  EXPECT_EQ(WordFor(ExtensionFolder(L"no_handle")), L"no-handle-export");
  EXPECT_EQ(WordFor(ExtensionFolder(L"no_length")), L"no-length-export");
  EXPECT_EQ(WordFor(ExtensionFolder(L"no_copy")), L"no-copy-export");
  EXPECT_EQ(WordFor(ExtensionFolder(L"no_initialize")), L"none");
  EXPECT_EQ(Diagnose(LookAtPrinter(kName)).remarks.size(), 1u);
}

TEST_F(PrinterFactsTest, LoadsNoLibrary) {
  EXPECT_EQ(WordFor(ExtensionFolder(L"scripted")), L"none");
  EXPECT_EQ(::GetModuleHandleW(L"Corvane_V3_NetMon.dll"), nullptr);
}

TEST_F(PrinterFactsTest, ListsPrintersWithTheirShares) {
  const DemoPrinter unshared(L"Facts Unshared");
  std::vector<PrinterName> printers;
  ASSERT_EQ(ListPrinters(printers), std::nullopt);
  std::wstring seen;
  for (const PrinterName& printer : printers) {
    if (printer.name.starts_with(L"Facts ")) {
      seen += printer.name + L"=" + printer.share + L";";
    }
  }
  EXPECT_THAT(seen, HasSubstr(L"Facts Printer=facts;"));
  EXPECT_THAT(seen, HasSubstr(L"Facts Unshared=;"));
}

TEST_F(PrinterFactsTest, AreShownByTheVerb) {
  m_printer.SetDriverPackage(ExtensionFolder(L"no_copy"));
  const ProgramResult all = RunKovactl(L"printers");
  EXPECT_EQ(all.exitCode, 0u);
  EXPECT_THAT(all.output, HasSubstr("Facts Printer (shared as \"facts\")\n"
                                    "  package  "));
  EXPECT_THAT(all.output,
              HasSubstr("  Requests are answered 400: the library does not "
                        "export WSIE_GetResponse.\n"));
  const ProgramResult one = RunKovactl(L"printers --json \"facts PRINTER\"");
  EXPECT_EQ(one.exitCode, 1u);
  EXPECT_THAT(one.errors, StartsWith("kovactl: error: requests for \"Facts "
                                     "Printer\" are answered 400: "));
  const auto json = nlohmann::json::parse(one.output);
  ASSERT_EQ(json["printers"].size(), 1u);
  EXPECT_EQ(json["printers"][0]["fault"], "no-copy-export");
  EXPECT_EQ(json["printers"][0]["share"], "facts");
}

TEST_F(PrinterFactsTest, EndTheVerbWellWithoutAFault) {
  m_printer.SetDriverPackage(ExtensionFolder(L"scripted"));
  const ProgramResult one = RunKovactl(L"printers \"Facts Printer\"");
  EXPECT_EQ(one.exitCode, 0u);
  EXPECT_EQ(one.errors, "");
  EXPECT_THAT(one.output, HasSubstr("  No fault can be seen.\n"));
  EXPECT_EQ(RunKovactl(L"printers nothing").exitCode, 9u);
}

TEST_F(PrinterFactsTest, AreSummedUpForMonitoring) {
  m_printer.SetDriverPackage(ExtensionFolder(L"scripted"));
  const DemoPrinter another(L"Facts Another");
  const DemoPrinter plain(L"Facts Plain");
  EXPECT_THAT(
      RunKovactl(L"printers --check").output,
      EndsWith("\n0 of 1 printers cannot answer; 2 without an extension "
               "not counted.\n"));
  DemoPrinter broken(L"Facts Broken");
  broken.SetDriverPackage(L"C:\\nowhere");
  const ProgramResult result = RunKovactl(L"printers --check");
  EXPECT_EQ(result.exitCode, 1u);
  EXPECT_THAT(result.output, HasSubstr("\n1 of 2 printers cannot answer; 2 "));
  EXPECT_THAT(result.errors,
              StartsWith("kovactl: error: 1 of 2 printers cannot answer"));
  EXPECT_EQ(RunKovactl(L"printers").exitCode, 0u);
}

TEST_F(PrinterFactsTest, ShowAShareNameThatIsTaken) {
  const DemoPrinter second(L"Facts Second", L"FACTS");
  const auto json =
      nlohmann::json::parse(RunKovactl(L"printers --json").output);
  std::string remarks;
  for (const auto& printer : json["printers"]) {
    remarks += printer["name"].get<std::string>() + ": " +
               printer["remarks"].dump() + "\n";
  }
  // Which of the two comes first is the spooler's to say.
  const std::wstring first = ShareNameToPrinterName(L"facts");
  const std::string taker(first.begin(), first.end());
  EXPECT_THAT(remarks, HasSubstr("is also that of the printer \\\"" + taker +
                                 "\\\", which gets its requests"));
  EXPECT_THAT(remarks, HasSubstr(taker + ": []"));
}

}  // namespace
