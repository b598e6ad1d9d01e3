// Patched: share names of real printers, and a spooler that is made to fail.
#include "spooler/printers.h"

#include <gtest/gtest.h>

#include "base/windows_api.h"
#include "test/support/demo_printer.h"
#include "test/support/import_patch.h"
#include "test/support/watched_heap.h"

namespace {

using kova::test::DemoPrinter;
using kova::test::FindImportSlot;
using kova::test::ImportPatch;

// A spooler under the test's command: lists these printers.
struct FakeSpooler {
  std::vector<PRINTER_INFO_2W> printers;
  bool secondCallFails = false;
  std::vector<DWORD> sizes;  // of the buffers of all calls
  DWORD flags = 0;
  DWORD level = 0;
};

FakeSpooler* g_spooler = nullptr;

BOOL WINAPI FakeEnumPrinters(DWORD flags, LPWSTR server, DWORD level,
                             LPBYTE buffer, DWORD sizeBytes, LPDWORD needed,
                             LPDWORD count) {
  FakeSpooler& spooler = *g_spooler;
  EXPECT_EQ(server, nullptr);
  spooler.flags = flags;
  spooler.level = level;
  spooler.sizes.push_back(sizeBytes);
  const size_t bytes = spooler.printers.size() * sizeof(PRINTER_INFO_2W);
  *needed = static_cast<DWORD>(bytes);
  *count = 0;
  if (sizeBytes < bytes || (buffer != nullptr && spooler.secondCallFails)) {
    return FALSE;
  }
  std::copy(spooler.printers.begin(), spooler.printers.end(),
            reinterpret_cast<PRINTER_INFO_2W*>(buffer));
  *count = static_cast<DWORD>(spooler.printers.size());
  return TRUE;
}

PRINTER_INFO_2W Entry(const wchar_t* name, const wchar_t* share) {
  PRINTER_INFO_2W entry = {};
  entry.pPrinterName = const_cast<wchar_t*>(name);
  entry.pShareName = const_cast<wchar_t*>(share);
  return entry;
}

class PrinterShareTest : public testing::Test {
 protected:
  PrinterShareTest() { g_spooler = &m_spooler; }

  FakeSpooler m_spooler;
  const ImportPatch<decltype(::EnumPrintersW)> m_patch{nullptr, "EnumPrintersW",
                                                       &FakeEnumPrinters};
};

TEST_F(PrinterShareTest, AsksForLocalAndSharedPrintersTwice) {
  m_spooler.printers = {Entry(L"P", L"S")};
  EXPECT_EQ(ShareNameToPrinterName(L"S"), L"P");
  EXPECT_EQ(m_spooler.flags, 0x22u);
  EXPECT_EQ(m_spooler.level, 2u);
  EXPECT_EQ(m_spooler.sizes,
            (std::vector<DWORD>{0, DWORD{sizeof(PRINTER_INFO_2W)}}));
}

TEST_F(PrinterShareTest, ASizeOfZeroEndsTheLookUp) {
  EXPECT_EQ(ShareNameToPrinterName(L"S"), L"");
  EXPECT_EQ(m_spooler.sizes, std::vector<DWORD>{0});
}

TEST_F(PrinterShareTest, AFailedListHasNoPrinter) {
  m_spooler.printers = {Entry(L"P", L"S")};
  m_spooler.secondCallFails = true;
  EXPECT_EQ(ShareNameToPrinterName(L"S"), L"");
  EXPECT_EQ(m_spooler.sizes.size(), 2u);
}

TEST_F(PrinterShareTest, TheFirstOfEqualShareNamesWins) {
  m_spooler.printers = {Entry(L"A", L"x"), Entry(L"B", L"KOVA"),
                        Entry(L"C", L"kova")};
  EXPECT_EQ(ShareNameToPrinterName(L"kova"), L"B");
  EXPECT_EQ(ShareNameToPrinterName(L"X"), L"A");
}

TEST_F(PrinterShareTest, PrintersWithoutAShareNameArePassedOver) {
  m_spooler.printers = {Entry(L"A", nullptr), Entry(L"B", L""),
                        Entry(L"C", L"S")};
  EXPECT_EQ(ShareNameToPrinterName(L"s"), L"C");
  EXPECT_EQ(ShareNameToPrinterName(L"A"), L"");
}

TEST_F(PrinterShareTest, AnEntryWithoutAPrinterNameGivesNone) {
  m_spooler.printers = {Entry(nullptr, L"S"), Entry(L"B", L"S")};
  EXPECT_EQ(ShareNameToPrinterName(L"S"), L"");
}

TEST_F(PrinterShareTest, OnlyAsciiLettersIgnoreCase) {
  m_spooler.printers = {Entry(L"A", L"\x00C9T\x00C9"), Entry(L"B", L"[@`{")};
  EXPECT_EQ(ShareNameToPrinterName(L"\x00C9t\x00C9"), L"A");
  EXPECT_EQ(ShareNameToPrinterName(L"\x00E9t\x00E9"), L"");
  EXPECT_EQ(ShareNameToPrinterName(L"{@`["), L"");
  EXPECT_EQ(ShareNameToPrinterName(L"[@`{"), L"B");
}

TEST_F(PrinterShareTest, WholeNamesAreCompared) {
  m_spooler.printers = {Entry(L"A", L"share")};
  EXPECT_EQ(ShareNameToPrinterName(L"shar"), L"");
  EXPECT_EQ(ShareNameToPrinterName(L"share1"), L"");
  EXPECT_EQ(ShareNameToPrinterName(std::wstring(L"share\0x", 7)), L"");
}

TEST_F(PrinterShareTest, AListBeyondMemoryHasNoPrinter) {
  m_spooler.printers.assign(1000, Entry(L"P", L"S"));
  const kova::test::WatchedHeap heap;
  heap.RefuseAbove(sizeof(PRINTER_INFO_2W) * 1000 - 1);
  EXPECT_EQ(ShareNameToPrinterName(L"S"), L"");
  EXPECT_EQ(m_spooler.sizes, std::vector<DWORD>{0});
}

TEST(RealPrinterShareTest, FindsRealPrintersAsTheyComeAndGo) {
  const DemoPrinter hidden(L"KOVA share test hidden");
  ASSERT_TRUE(hidden.IsInstalled());
  EXPECT_EQ(ShareNameToPrinterName(L"kovashare"), L"");
  {
    const DemoPrinter shared(L"KOVA share test", L"KovaShare");
    ASSERT_TRUE(shared.IsInstalled());
    EXPECT_EQ(ShareNameToPrinterName(L"kovashare"), L"KOVA share test");
  }
  EXPECT_EQ(ShareNameToPrinterName(L"kovashare"), L"");
}

}  // namespace
