// Patched: driver packages of real printers; chosen spooler calls replaced.
#include "spooler/printers.h"

#include <gtest/gtest.h>

#include <cstring>

#include "test/support/demo_printer.h"
#include "test/support/import_patch.h"

namespace {

using kova::test::DemoPrinter;
using kova::test::ImportPatch;

constexpr wchar_t kName[] = L"KOVA location test";

std::wstring LibraryPath() { return GetV3PrintMonitorDllFullPath(kName); }

class PrinterDriverTest : public testing::Test {
 protected:
  PrinterDriverTest() : m_printer(kName) {}
  void SetUp() override { ASSERT_TRUE(m_printer.IsInstalled()); }

  DemoPrinter m_printer;
};

TEST_F(PrinterDriverTest, JoinsThePackageFolderAndTheLibrary) {
  ASSERT_TRUE(m_printer.SetDriverPackage(L"C:\\Drivers\\Pkg"));
  EXPECT_EQ(GetDriverPackagePath(kName), L"C:\\Drivers\\Pkg");
  EXPECT_EQ(LibraryPath(), L"C:\\Drivers\\Pkg\\Corvane_V3_NetMon.dll");
}

TEST_F(PrinterDriverTest, AFolderThatEndsInABackslashGetsASecondOne) {
  ASSERT_TRUE(m_printer.SetDriverPackage(L"C:\\Drivers\\Pkg\\"));
  EXPECT_EQ(LibraryPath(), L"C:\\Drivers\\Pkg\\\\Corvane_V3_NetMon.dll");
}

TEST_F(PrinterDriverTest, WithoutAPackageThereIsNoPath) {
  EXPECT_EQ(LibraryPath(), L"");
  ASSERT_TRUE(m_printer.SetDriverPackage(L""));
  EXPECT_EQ(LibraryPath(), L"");
}

TEST_F(PrinterDriverTest, APackageOfAnotherTypeIsNone) {
  const wchar_t text[] = L"C:\\Drivers";
  ASSERT_TRUE(m_printer.SetDriverPackageData(REG_BINARY, text, sizeof(text)));
  EXPECT_EQ(LibraryPath(), L"");
  ASSERT_TRUE(
      m_printer.SetDriverPackageData(REG_EXPAND_SZ, text, sizeof(text)));
  EXPECT_EQ(LibraryPath(), L"");
}

TEST_F(PrinterDriverTest, UnknownAndNullPrintersHaveNoPath) {
  EXPECT_EQ(GetV3PrintMonitorDllFullPath(L"KOVA no such printer"), L"");
  EXPECT_EQ(GetV3PrintMonitorDllFullPath(L""), L"");
  EXPECT_EQ(GetV3PrintMonitorDllFullPath(nullptr), L"");
  EXPECT_EQ(GetDriverPackagePath(nullptr), L"");
}

TEST_F(PrinterDriverTest, AFolderOfAtMost2047CharactersIsTaken) {
  const std::wstring longest = L"C:\\" + std::wstring(2044, L'x');
  ASSERT_TRUE(m_printer.SetDriverPackage(longest));
  EXPECT_EQ(GetDriverPackagePath(kName), longest);
  ASSERT_TRUE(m_printer.SetDriverPackage(longest + L"x"));
  EXPECT_EQ(GetDriverPackagePath(kName), L"");
  // As many bytes as fit, but no terminator among them.
  ASSERT_TRUE(
      m_printer.SetDriverPackageData(REG_SZ, (longest + L"x").c_str(), 4096));
  EXPECT_EQ(GetDriverPackagePath(kName), L"");
}

TEST_F(PrinterDriverTest, EndsAtTheFirstZero) {
  const wchar_t text[] = L"C:\\A\0B";
  ASSERT_TRUE(m_printer.SetDriverPackageData(REG_SZ, text, sizeof(text)));
  EXPECT_EQ(GetDriverPackagePath(kName), L"C:\\A");
}

ACCESS_MASK g_access = 0;
int g_closed = 0;
HANDLE g_handle = nullptr;

BOOL WINAPI OpenGivenHandle(LPWSTR, HANDLE* printer,
                            PRINTER_DEFAULTSW* defaults) {
  g_access = defaults->DesiredAccess;
  EXPECT_EQ(defaults->pDatatype, nullptr);
  EXPECT_EQ(defaults->pDevMode, nullptr);
  *printer = g_handle;
  return TRUE;
}
BOOL WINAPI CountClose(HANDLE) {
  ++g_closed;
  return TRUE;
}
DWORD WINAPI FailToGetData(HANDLE, LPWSTR, DWORD* type, BYTE* data, DWORD size,
                           DWORD* needed) {
  // What a failed call leaves behind must not be used.
  *type = REG_SZ;
  data[0] = 'C';
  *needed = size + 1;
  return ERROR_MORE_DATA;
}

class PrinterDriverFailureTest : public testing::Test {
 protected:
  PrinterDriverFailureTest()
      : m_open(nullptr, "OpenPrinterW", &OpenGivenHandle),
        m_close(nullptr, "ClosePrinter", &CountClose),
        m_get(nullptr, "GetPrinterDataW", &FailToGetData) {
    g_closed = 0;
  }
  const ImportPatch<decltype(OpenPrinterW)> m_open;
  const ImportPatch<decltype(ClosePrinter)> m_close;
  const ImportPatch<decltype(GetPrinterDataW)> m_get;
};

TEST_F(PrinterDriverFailureTest, ClosesThePrinterWhereReadingFails) {
  g_handle = reinterpret_cast<HANDLE>(uintptr_t{4660});
  EXPECT_EQ(GetDriverPackagePath(kName), L"");
  EXPECT_EQ(g_closed, 1);
  EXPECT_EQ(g_access, static_cast<ACCESS_MASK>(PRINTER_ACCESS_USE));
}

DWORD WINAPI FillTheBuffer(HANDLE, LPWSTR, DWORD* type, BYTE* data, DWORD size,
                           DWORD* needed) {
  EXPECT_EQ(size, 4096u);
  *type = REG_SZ;
  std::memset(data, 'x', size);
  *needed = size;
  return ERROR_SUCCESS;
}

TEST_F(PrinterDriverFailureTest, ATextWithoutATerminatorIsNone) {
  const ImportPatch<decltype(GetPrinterDataW)> get(nullptr, "GetPrinterDataW",
                                                   &FillTheBuffer);
  g_handle = reinterpret_cast<HANDLE>(uintptr_t{4660});
  EXPECT_EQ(GetDriverPackagePath(kName), L"");
}

TEST_F(PrinterDriverFailureTest, ClosesNothingWhereNothingWasOpened) {
  g_handle = nullptr;
  EXPECT_EQ(GetDriverPackagePath(kName), L"");
  g_handle = INVALID_HANDLE_VALUE;
  EXPECT_EQ(GetDriverPackagePath(kName), L"");
  EXPECT_EQ(g_closed, 0);
}

}  // namespace
