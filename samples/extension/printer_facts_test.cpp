// Patched: what the page tells about a printer, over a spooler of our own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <string>

#include "loaded_extension.h"
#include "test/support/import_patch.h"

namespace {

using ::kova::test::ImportPatch;
using ::kova::test::LoadedExtension;
using ::testing::HasSubstr;

int g_open = 0;
std::wstring g_openedName;
std::wstring g_package;
DWORD g_packageType = REG_SZ;

BOOL WINAPI FakeOpen(wchar_t* name, HANDLE* printer, PRINTER_DEFAULTSW*) {
  g_openedName = name;
  if (g_openedName != L"Lobby \x00E4") return FALSE;
  *printer = &g_open;
  ++g_open;
  return TRUE;
}

BOOL WINAPI FakeClose(HANDLE) {
  --g_open;
  return TRUE;
}

BOOL WINAPI FakeGetPrinter(HANDLE, DWORD, BYTE* buffer, DWORD size,
                           DWORD* needed) {
  *needed = sizeof(PRINTER_INFO_2W);
  if (size < *needed) return FALSE;
  auto* const info = reinterpret_cast<PRINTER_INFO_2W*>(buffer);
  *info = {};
  info->pShareName = const_cast<wchar_t*>(L"front<desk>");
  info->pDriverName = const_cast<wchar_t*>(L"Some Driver");
  info->pPortName = const_cast<wchar_t*>(L"LPT7:");
  info->cJobs = 3;
  return TRUE;
}

DWORD WINAPI FakeData(HANDLE, wchar_t* name, DWORD* type, BYTE* buffer,
                      DWORD size, DWORD* needed) {
  if (std::wcscmp(name, L"DriverPackage") != 0) return ERROR_FILE_NOT_FOUND;
  *type = g_packageType;
  *needed = static_cast<DWORD>((g_package.size() + 1) * sizeof(wchar_t));
  if (*needed > size) return ERROR_MORE_DATA;
  std::copy_n(reinterpret_cast<const BYTE*>(g_package.c_str()), *needed,
              buffer);
  return ERROR_SUCCESS;
}

BOOL WINAPI FakeEnum(DWORD, wchar_t*, DWORD, BYTE* buffer, DWORD size,
                     DWORD* needed, DWORD* count) {
  *needed = 2 * sizeof(PRINTER_INFO_2W);
  *count = 0;
  if (size < *needed) return FALSE;
  auto* const printers = reinterpret_cast<PRINTER_INFO_2W*>(buffer);
  printers[0] = {};
  printers[0].pPrinterName = const_cast<wchar_t*>(L"Not shared");
  printers[1] = {};
  printers[1].pPrinterName = const_cast<wchar_t*>(L"Lobby \x00E4");
  printers[1].pShareName = const_cast<wchar_t*>(L"front<desk>");
  *count = 2;
  return TRUE;
}

class SamplePrinterFactsTest : public ::testing::Test {
 protected:
  SamplePrinterFactsTest() {
    g_open = 0;
    g_package = L"C:\\Drivers\\Lobby";
    g_packageType = REG_SZ;
  }

  std::string Page(const std::string& query) const {
    return m_extension.Ask("GET /?" + query + " HTTP/1.1\r\n\r\n");
  }

  LoadedExtension m_extension;
  const HMODULE m_module = m_extension.Module();
  ImportPatch<decltype(FakeOpen)> m_openPatch{m_module, "OpenPrinterW",
                                              &FakeOpen};
  ImportPatch<decltype(FakeClose)> m_closePatch{m_module, "ClosePrinter",
                                                &FakeClose};
  ImportPatch<decltype(FakeGetPrinter)> m_getPatch{m_module, "GetPrinterW",
                                                   &FakeGetPrinter};
  ImportPatch<decltype(FakeData)> m_dataPatch{m_module, "GetPrinterDataW",
                                              &FakeData};
  ImportPatch<decltype(FakeEnum)> m_enumPatch{m_module, "EnumPrintersW",
                                              &FakeEnum};
};

TEST_F(SamplePrinterFactsTest, ShowsWhatTheSpoolerKnows) {
  const std::string page = Page("printer=Lobby+%C3%A4");
  EXPECT_THAT(page, HasSubstr("<h1 id=\"name\">Lobby \xC3\xA4</h1>"));
  EXPECT_THAT(page, HasSubstr("<p>Some Driver</p>"));
  EXPECT_THAT(page, HasSubstr("<dd id=\"share\">front&lt;desk&gt;</dd>"));
  EXPECT_THAT(page, HasSubstr("<dd>LPT7:</dd>"));
  EXPECT_THAT(page, HasSubstr("<dd id=\"package\">C:\\Drivers\\Lobby</dd>"));
  EXPECT_THAT(page, HasSubstr("<strong id=\"jobs\">3</strong>"));
  EXPECT_EQ(g_open, 0);
}

TEST_F(SamplePrinterFactsTest, FindsThePrinterOfAShare) {
  const std::string page = Page("share=FRONT%3Cdesk%3E");
  EXPECT_EQ(g_openedName, L"Lobby \x00E4");
  EXPECT_THAT(page, HasSubstr("<h1 id=\"name\">Lobby \xC3\xA4</h1>"));
  EXPECT_EQ(g_open, 0);
}

TEST_F(SamplePrinterFactsTest, ManagesWithoutAnyFact) {
  const std::string unknown = Page("printer=Nobody");
  EXPECT_THAT(unknown, HasSubstr("<h1 id=\"name\">Nobody</h1>"));
  EXPECT_THAT(unknown, HasSubstr("<dd id=\"share\">not shared</dd>"));
  EXPECT_THAT(Page("share=nobody"),
              HasSubstr("<h1 id=\"name\">Unknown printer</h1>"));
}

TEST_F(SamplePrinterFactsTest, SaysSoWhenThePackageIsNotKnown) {
  g_package.assign(2048, L'x');
  EXPECT_THAT(Page("printer=Lobby+%C3%A4"), HasSubstr("package\">unknown<"));
  g_package = L"C:\\P";
  g_packageType = REG_BINARY;
  EXPECT_THAT(Page("printer=Lobby+%C3%A4"), HasSubstr("package\">unknown<"));
  EXPECT_EQ(g_open, 0);
}

TEST_F(SamplePrinterFactsTest, ShowsAPackagePathAsLongAsTheServerReads) {
  g_package.assign(2047, L'x');
  EXPECT_THAT(Page("printer=Lobby+%C3%A4"),
              HasSubstr("package\">" + std::string(2047, 'x') + "<"));
}

}  // namespace
