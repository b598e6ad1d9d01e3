// Patched: making the demonstration printer, over a spooler of our own.
#include "run/demo_printer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/windows_api.h"
#include "common/file_path.h"
#include "test/support/import_patch.h"

namespace {

using ::kova::ctl::DemoRemoval;
using ::kova::ctl::EnsureDemoPrinter;
using ::kova::ctl::ExitCode;
using ::kova::ctl::Failure;
using ::kova::ctl::ProgramFolder;
using ::kova::ctl::RemoveDemoPrinter;
using ::kova::test::ImportPatch;
using ::testing::HasSubstr;

struct Spooler {
  bool hasPrinter = false;
  std::wstring driver = L"Some Driver";  // empty: none is installed
  DWORD openError = ERROR_INVALID_PRINTER_NAME;
  DWORD addError = ERROR_SUCCESS;
  DWORD dataError = ERROR_SUCCESS;
  DWORD deleteError = ERROR_SUCCESS;
  int open = 0;
  std::wstring comment;
  std::wstring removedDriver;
  std::wstring share;
  std::wstring usedDriver;
  std::wstring package;
  DWORD attributes = 0;
};
Spooler g_spooler;

BOOL WINAPI FakeOpen(wchar_t* name, HANDLE* printer, PRINTER_DEFAULTSW*) {
  EXPECT_STREQ(name, L"Demo Printer");
  if (!g_spooler.hasPrinter) {
    ::SetLastError(g_spooler.openError);
    return FALSE;
  }
  *printer = &g_spooler;
  ++g_spooler.open;
  return TRUE;
}

BOOL WINAPI FakeClose(HANDLE) {
  --g_spooler.open;
  return TRUE;
}

HANDLE WINAPI FakeAdd(wchar_t*, DWORD, BYTE* info) {
  if (g_spooler.addError != ERROR_SUCCESS) {
    ::SetLastError(g_spooler.addError);
    return nullptr;
  }
  const auto* const printer = reinterpret_cast<PRINTER_INFO_2W*>(info);
  EXPECT_STREQ(printer->pPrinterName, L"Demo Printer");
  g_spooler.hasPrinter = true;
  g_spooler.share = printer->pShareName;
  g_spooler.comment = printer->pComment;
  g_spooler.usedDriver = printer->pDriverName;
  g_spooler.attributes = printer->Attributes;
  ++g_spooler.open;
  return &g_spooler;
}

DWORD WINAPI FakeSetData(HANDLE, wchar_t* name, DWORD type, BYTE* data,
                         DWORD size) {
  EXPECT_STREQ(name, L"DriverPackage");
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
  g_spooler.package.assign(reinterpret_cast<wchar_t*>(data), size / 2);
  return g_spooler.dataError;
}

BOOL WINAPI FakeDrivers(wchar_t*, wchar_t*, DWORD, BYTE* buffer, DWORD size,
                        DWORD* needed, DWORD* count) {
  *count = 0;
  *needed = 0;
  if (g_spooler.driver.empty()) return TRUE;
  *needed = sizeof(DRIVER_INFO_1W);
  if (size < *needed) return FALSE;
  reinterpret_cast<DRIVER_INFO_1W*>(buffer)->pName = g_spooler.driver.data();
  *count = 1;
  return TRUE;
}

BOOL WINAPI FakeAddDriver(wchar_t*, DWORD, BYTE*) { return FALSE; }

BOOL WINAPI FakeGet(HANDLE, DWORD level, BYTE* buffer, DWORD size,
                    DWORD* needed) {
  EXPECT_EQ(level, 2u);
  *needed = sizeof(PRINTER_INFO_2W);
  if (size < *needed) return FALSE;
  *reinterpret_cast<PRINTER_INFO_2W*>(buffer) = {};
  reinterpret_cast<PRINTER_INFO_2W*>(buffer)->pComment =
      g_spooler.comment.data();
  return TRUE;
}

BOOL WINAPI FakeDelete(HANDLE) {
  ::SetLastError(g_spooler.deleteError);
  if (g_spooler.deleteError != ERROR_SUCCESS) return FALSE;
  g_spooler.hasPrinter = false;
  return TRUE;
}

BOOL WINAPI FakeDeleteDriver(wchar_t*, wchar_t*, wchar_t* name) {
  EXPECT_EQ(g_spooler.open, 0);
  g_spooler.removedDriver = name;
  return FALSE;
}

class DemoPrinterTest : public ::testing::Test {
 protected:
  DemoPrinterTest() { g_spooler = Spooler(); }
  ~DemoPrinterTest() override { EXPECT_EQ(g_spooler.open, 0); }

  static std::optional<Failure> Ensure() {
    return EnsureDemoPrinter(Package());
  }

  // How it fails; a success is the failure of no code.
  static Failure EnsureFails() {
    return Ensure().value_or(Failure{ExitCode::kSuccess, L"it did not fail"});
  }

  static std::wstring Package() {
    return ProgramFolder() + L"\\..\\bin\\sample-extension";
  }

  ImportPatch<decltype(FakeOpen)> m_open{nullptr, "OpenPrinterW", &FakeOpen};
  ImportPatch<decltype(FakeClose)> m_close{nullptr, "ClosePrinter", &FakeClose};
  ImportPatch<decltype(FakeAdd)> m_add{nullptr, "AddPrinterW", &FakeAdd};
  ImportPatch<decltype(FakeSetData)> m_data{nullptr, "SetPrinterDataW",
                                            &FakeSetData};
  ImportPatch<decltype(FakeDrivers)> m_drivers{nullptr, "EnumPrinterDriversW",
                                               &FakeDrivers};
  ImportPatch<decltype(FakeAddDriver)> m_addDriver{nullptr, "AddPrinterDriverW",
                                                   &FakeAddDriver};
  ImportPatch<decltype(FakeGet)> m_get{nullptr, "GetPrinterW", &FakeGet};
  ImportPatch<decltype(FakeDelete)> m_delete{nullptr, "DeletePrinter",
                                             &FakeDelete};
  ImportPatch<decltype(FakeDeleteDriver)> m_deleteDriver{
      nullptr, "DeletePrinterDriverW", &FakeDeleteDriver};
};

TEST_F(DemoPrinterTest, MakesASharedPrinterThatNamesItsPackage) {
  EXPECT_FALSE(Ensure().has_value());
  EXPECT_EQ(g_spooler.share, L"demo");
  EXPECT_EQ(g_spooler.attributes, static_cast<DWORD>(PRINTER_ATTRIBUTE_SHARED));
  EXPECT_EQ(g_spooler.usedDriver, L"Some Driver");
  EXPECT_EQ(g_spooler.package, Package() + L'\0');
}

TEST_F(DemoPrinterTest, UsesThePrinterThatIsThere) {
  g_spooler.hasPrinter = true;
  EXPECT_FALSE(Ensure().has_value());
  EXPECT_EQ(g_spooler.share, L"");
  EXPECT_EQ(g_spooler.package, Package() + L'\0');
}

TEST_F(DemoPrinterTest, MissesTheExtensionFirst) {
  const auto failure = EnsureDemoPrinter(L"C:\\nowhere");
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, ExitCode::kMissingFile);
  EXPECT_THAT(failure->text, HasSubstr(L"C:\\nowhere\\Corvane_V3_NetMon.dll"));
  EXPECT_EQ(g_spooler.usedDriver, L"");
}

TEST_F(DemoPrinterTest, SaysThatRightsAreMissing) {
  g_spooler.addError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(EnsureFails().code, ExitCode::kAccessDenied);
  g_spooler.addError = ERROR_SUCCESS;
  g_spooler.openError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(EnsureFails().code, ExitCode::kAccessDenied);
  g_spooler.hasPrinter = true;
  g_spooler.dataError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(EnsureFails().code, ExitCode::kAccessDenied);
}

TEST_F(DemoPrinterTest, SaysThatTheSpoolerRefused) {
  g_spooler.addError = ERROR_UNKNOWN_PORT;
  EXPECT_EQ(EnsureFails().code, ExitCode::kSpooler);
  g_spooler.addError = ERROR_SUCCESS;
  g_spooler.openError = RPC_S_SERVER_UNAVAILABLE;
  EXPECT_EQ(EnsureFails().code, ExitCode::kSpooler);
  EXPECT_THAT(EnsureFails().text, HasSubstr(L"is the print spooler running?"));
}

TEST_F(DemoPrinterTest, RemovesWhatItMade) {
  EXPECT_FALSE(Ensure().has_value());
  DemoRemoval outcome = DemoRemoval::kNotThere;
  EXPECT_FALSE(RemoveDemoPrinter(outcome).has_value());
  EXPECT_EQ(outcome, DemoRemoval::kRemoved);
  EXPECT_FALSE(g_spooler.hasPrinter);
  EXPECT_EQ(g_spooler.removedDriver, L"KOVA Demo Driver");
  EXPECT_FALSE(RemoveDemoPrinter(outcome).has_value());
  EXPECT_EQ(outcome, DemoRemoval::kNotThere);
}

TEST_F(DemoPrinterTest, LeavesAnotherPrinterOfThatName) {
  g_spooler.hasPrinter = true;
  EXPECT_FALSE(Ensure().has_value());
  for (const wchar_t* const comment : {L"", L"Reception"}) {
    g_spooler.comment = comment;
    DemoRemoval outcome = DemoRemoval::kRemoved;
    EXPECT_FALSE(RemoveDemoPrinter(outcome).has_value());
    EXPECT_EQ(outcome, DemoRemoval::kNotOurs);
    EXPECT_TRUE(g_spooler.hasPrinter);
  }
  EXPECT_EQ(g_spooler.removedDriver, L"");
}

TEST_F(DemoPrinterTest, SaysThatItCannotBeRemoved) {
  EXPECT_FALSE(Ensure().has_value());
  g_spooler.deleteError = ERROR_ACCESS_DENIED;
  DemoRemoval outcome = DemoRemoval::kRemoved;
  const auto failure = RemoveDemoPrinter(outcome);
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->code, ExitCode::kAccessDenied);
  EXPECT_TRUE(g_spooler.hasPrinter);
}

TEST_F(DemoPrinterTest, NeedsSomeDriver) {
  g_spooler.driver.clear();
  EXPECT_EQ(EnsureFails().code, ExitCode::kSpooler);
  EXPECT_THAT(EnsureFails().text, HasSubstr(L"no printer driver is installed"));
}

}  // namespace
