// Patched: which printer names reach the spooler that opens them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "spooler/printers.h"
#include "test/support/demo_printer.h"
#include "test/support/import_patch.h"
#include "test/support/watched_heap.h"

namespace {

using kova::test::DemoPrinter;
using kova::test::ImportPatch;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr wchar_t kPackage[] = L"C:\\Pkg";

// A spooler under the test's command: lists these printers, opens any name.
struct FakeSpooler {
  std::vector<const wchar_t*> names;
  std::vector<DWORD> sizes;  // of the buffers of all lists asked for
  std::vector<std::wstring> opened;
  size_t failingList = 0;  // counted from 1; 0: none
  bool isGrowing = false;  // one more printer with each list
};
FakeSpooler* g_spooler = nullptr;

BOOL WINAPI FakeEnumPrinters(DWORD flags, LPWSTR server, DWORD level,
                             LPBYTE buffer, DWORD sizeBytes, LPDWORD needed,
                             LPDWORD count) {
  FakeSpooler& spooler = *g_spooler;
  EXPECT_EQ(flags, 0x6u);  // local printers and connections
  EXPECT_EQ(server, nullptr);
  EXPECT_EQ(level, 4u);
  spooler.sizes.push_back(sizeBytes);
  if (spooler.isGrowing) spooler.names.push_back(L"newer");
  const size_t bytes = spooler.names.size() * sizeof(PRINTER_INFO_4W);
  *count = 0;
  if (spooler.sizes.size() == spooler.failingList) {
    ::SetLastError(RPC_S_SERVER_UNAVAILABLE);
    return FALSE;
  }
  *needed = static_cast<DWORD>(bytes);
  if (sizeBytes < bytes) {
    ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  auto* const rows = reinterpret_cast<PRINTER_INFO_4W*>(buffer);
  for (size_t i = 0; i < spooler.names.size(); ++i) {
    rows[i] = {const_cast<wchar_t*>(spooler.names[i]), nullptr, 0};
  }
  *count = static_cast<DWORD>(spooler.names.size());
  return TRUE;
}

BOOL WINAPI RecordOpen(LPWSTR name, HANDLE* printer, PRINTER_DEFAULTSW*) {
  g_spooler->opened.push_back(name);
  *printer = reinterpret_cast<HANDLE>(uintptr_t{4660});
  return TRUE;
}
BOOL WINAPI AcceptClose(HANDLE) { return TRUE; }
DWORD WINAPI GivePackage(HANDLE, LPWSTR, DWORD* type, BYTE* data, DWORD,
                         DWORD* needed) {
  *type = REG_SZ;
  *needed = sizeof(kPackage);
  std::copy_n(reinterpret_cast<const BYTE*>(kPackage), *needed, data);
  return ERROR_SUCCESS;
}

class PrinterNameTest : public testing::Test {
 protected:
  PrinterNameTest() { g_spooler = &m_spooler; }

  // Whether the printer was opened, as its package folder shows, too.
  bool Opens(const wchar_t* name) {
    m_spooler.opened.clear();
    const std::wstring folder = GetDriverPackagePath(name);
    EXPECT_EQ(folder, m_spooler.opened.empty() ? L"" : kPackage);
    EXPECT_LE(m_spooler.opened.size(), 1u);
    if (m_spooler.opened.empty()) return false;
    EXPECT_EQ(m_spooler.opened[0], name);
    return true;
  }

  FakeSpooler m_spooler;
  const ImportPatch<decltype(::EnumPrintersW)> m_enum{nullptr, "EnumPrintersW",
                                                      &FakeEnumPrinters};
  const ImportPatch<decltype(::OpenPrinterW)> m_open{nullptr, "OpenPrinterW",
                                                     &RecordOpen};
  const ImportPatch<decltype(::ClosePrinter)> m_close{nullptr, "ClosePrinter",
                                                      &AcceptClose};
  const ImportPatch<decltype(::GetPrinterDataW)> m_get{
      nullptr, "GetPrinterDataW", &GivePackage};
};

constexpr const wchar_t* kForeign[] = {
    L"\\\\evil\\queue",  L"\\queue",
    L"queue\\",          L"evil\\queue",
    L"//evil/queue",     L"//",
    L"http://evil/q",    L"https://evil/q",
    L"ipp://evil:631/q", L"x://",
    L" \\\\evil\\queue", L"\\\\evil\\,XcvMonitor Local Port",
};

TEST_F(PrinterNameTest, OnesThatLeadToAnotherMachineAreUnknownUnlessListed) {
  m_spooler.names = {L"Office", L"\\\\good\\queue"};
  for (const wchar_t* const name : kForeign) EXPECT_FALSE(Opens(name)) << name;
  EXPECT_EQ(GetV3PrintMonitorDllFullPath(L"\\\\evil\\queue"), L"");
}

TEST_F(PrinterNameTest, OnesThatLeadToAnotherMachineOpenWhereListed) {
  for (const wchar_t* const name : kForeign) {
    m_spooler.names = {L"Office", name, L"Other"};
    EXPECT_TRUE(Opens(name)) << name;
  }
}

TEST_F(PrinterNameTest, AListedOneMustBeTheWholeName) {
  m_spooler.names = {nullptr, L"\\\\Good\\Queue"};
  EXPECT_TRUE(Opens(L"\\\\gOOD\\qUEUE"));
  EXPECT_FALSE(Opens(L"\\\\good\\queu"));
  EXPECT_FALSE(Opens(L"\\\\good\\queue2"));
  EXPECT_FALSE(Opens(L"\\\\good\\queue,Job 1"));
  m_spooler.names = {L"\\\\\x00C9\\q"};
  EXPECT_FALSE(Opens(L"\\\\\x00E9\\q"));
}

TEST_F(PrinterNameTest, OthersAreOpenedWithoutAskingForTheList) {
  for (const wchar_t* const name :
       {L"Office", L"", L"/Office", L"a//b", L"http:/x", L"a:b", L":/ /",
        L"Office,Job 1", L",XcvMonitor Local Port"}) {
    EXPECT_TRUE(Opens(name)) << name;
  }
  EXPECT_THAT(m_spooler.sizes, IsEmpty());
}

TEST_F(PrinterNameTest, AnEmptyListHasNone) {
  EXPECT_FALSE(Opens(L"\\\\good\\queue"));
  EXPECT_THAT(m_spooler.sizes, ElementsAre(0u));
}

TEST_F(PrinterNameTest, WhereTheListFailsNoneIsListed) {
  m_spooler.names = {L"\\\\good\\queue"};
  for (const size_t call : {1u, 2u}) {
    m_spooler.sizes.clear();
    m_spooler.failingList = call;
    EXPECT_FALSE(Opens(L"\\\\good\\queue"));
    EXPECT_THAT(m_spooler.sizes, SizeIs(call));
  }
}

TEST_F(PrinterNameTest, AListThatGrowsIsAskedForAgainButNotForEver) {
  constexpr DWORD kRow = sizeof(PRINTER_INFO_4W);
  m_spooler.names = {L"\\\\good\\queue"};
  m_spooler.isGrowing = true;
  EXPECT_FALSE(Opens(L"\\\\good\\queue"));
  EXPECT_THAT(m_spooler.sizes, ElementsAre(0u, 2 * kRow, 3 * kRow, 4 * kRow));
}

constexpr size_t kLongList = 1000;

TEST_F(PrinterNameTest, WhereTheListIsBeyondMemoryNoneIsListed) {
  m_spooler.names.assign(kLongList, L"\\\\good\\queue");
  const kova::test::WatchedHeap heap;
  heap.RefuseAbove(sizeof(PRINTER_INFO_4W) * kLongList - 1);
  EXPECT_FALSE(Opens(L"\\\\good\\queue"));
  EXPECT_THAT(m_spooler.sizes, SizeIs(1));
}

TEST(RealPrinterNameTest, APrinterOfThisMachineMayHaveAnyName) {
  constexpr wchar_t kName[] = L"KOVA://location";
  EXPECT_EQ(GetDriverPackagePath(kName), L"");
  DemoPrinter printer(kName);
  ASSERT_TRUE(printer.IsInstalled());
  ASSERT_TRUE(printer.SetDriverPackage(kPackage));
  EXPECT_EQ(GetDriverPackagePath(kName), kPackage);
  EXPECT_EQ(GetDriverPackagePath(L"kova://LOCATION"), kPackage);
}

}  // namespace
