// Unit: how dumps are shown.
#include "logs/dump_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/memory_file.h"
#include "common/time_text.h"
#include "logs/sample_dump.h"
#include "logs/text_width.h"

namespace {

using ::kova::ctl::CrashDump;
using ::kova::ctl::DumpJson;
using ::kova::ctl::DumpListJson;
using ::kova::ctl::DumpListText;
using ::kova::ctl::DumpText;
using ::kova::ctl::SizeText;
using ::kova::ctl::test::DumpBytes;
using ::kova::ctl::test::DumpParts;
using ::kova::ctl::test::MemoryFile;
using ::kova::ctl::test::SmallDump;
using ::kova::ctl::test::WidestLine;
using ::testing::HasSubstr;
using ::testing::Not;

const std::vector<std::wstring> kFolders = {L"C:\\Dump", L"D:\\Dump"};

// The time of the small dump, as this machine shows it.
std::wstring Time() {
  return kova::ctl::LocalTimeText((1700000000 + 11644473600u) *
                                  uint64_t{10000000});
}

CrashDump Load(const DumpBytes& bytes) {
  CrashDump loaded;
  loaded.file = {L"C:\\Dump\\KOVAServerCrash_0007.dmp", 421'888, 0};
  loaded.number = 7;
  auto result = kova::ctl::ReadMinidump(MemoryFile(bytes.bytes));
  loaded.dump = std::move(result.dump);
  loaded.problem = std::move(result.notADump);
  return loaded;
}

class DumpReportTest : public ::testing::Test {
 protected:
  DumpReportTest() : m_bytes(SmallDump(m_parts)) {}

  DumpParts m_parts;
  DumpBytes m_bytes;
};

TEST_F(DumpReportTest, ListsDumpsFolderByFolder) {
  EXPECT_EQ(DumpListText({Load(m_bytes)}, kFolders),
            L"C:\\Dump\n"
            L"   N  Time                     Size  Thread  Code      Module\n"
            L"   7  " +
                Time() +
                L"    412 KB     340  c0000005  KOVAServer.dll\n"
                L"      access violation, writing address 0x10, at "
                L"KOVAServer.dll+0x1234\n"
                L"      (0x0000000180001234)\n");
}

TEST_F(DumpReportTest, SaysWhereItLookedInVain) {
  EXPECT_EQ(DumpListText({}, kFolders),
            L"There are no dumps in\n  C:\\Dump\n  D:\\Dump\n");
}

TEST_F(DumpReportTest, ListsFilesThatAreNoDumps) {
  CrashDump loaded = Load(DumpBytes());
  loaded.number = std::nullopt;
  const std::wstring text = DumpListText({loaded}, kFolders);
  EXPECT_THAT(text, HasSubstr(L"\n   -  "));
  EXPECT_THAT(text, HasSubstr(L"      KOVAServerCrash_0007.dmp\n"));
  EXPECT_THAT(text, HasSubstr(L"The file is empty: writing it was cut short."));
}

TEST_F(DumpReportTest, ListsDamagedDumps) {
  m_bytes.bytes.resize(m_parts.exception);
  EXPECT_THAT(DumpListText({Load(m_bytes)}, kFolders),
              HasSubstr(L"      The file is cut short or damaged.\n"));
  EXPECT_THAT(DumpText(Load(m_bytes)),
              HasSubstr(L"  Damaged    the exception lies beyond the end of "
                        L"the file\n"));
}

TEST_F(DumpReportTest, ShowsEverythingAboutOne) {
  const std::wstring text = DumpText(Load(m_bytes));
  EXPECT_THAT(text, HasSubstr(L"  Crashed    " + Time() + L" (local time)"));
  EXPECT_THAT(text, HasSubstr(L"  Program    KOVAServer.dll, process 324\n"));
  EXPECT_THAT(text, HasSubstr(L"  Windows    10.0 build 19045 Service Pack 9, "
                              L"x64, 4 processors\n"));
  EXPECT_THAT(text, HasSubstr(L"  rax   000000000000aaaa  rbx   "));
  EXPECT_THAT(text, HasSubstr(L"\n*    340  KOVAServer.dll+0x1234  "));
  EXPECT_THAT(text, HasSubstr(L"  0000000180000000  1.2.3.4           "
                              L"C:\\x\\KOVAServer.dll\n"));
  EXPECT_THAT(text, HasSubstr(L"cdb -z KOVAServerCrash_0007.dmp -y "));
}

TEST_F(DumpReportTest, ShowsAPlaceOutsideAllModules) {
  m_bytes.Put(m_parts.exception + 24, uint64_t{0x1234});
  EXPECT_THAT(DumpText(Load(m_bytes)),
              HasSubstr(L"  Where      0x0000000000001234 (in no module)\n"));
}

TEST_F(DumpReportTest, StaysWithin80ColumnsAndHarmless) {
  DumpBytes bent = m_bytes;
  const std::u16string path = u"C:\\" + std::u16string(70, u'x') + u"\\\x1b[2J";
  const size_t name = bent.AddString(path + std::u16string(60, u'y'));
  bent.Put(m_parts.modules + 4 + 20, static_cast<uint32_t>(name));
  const CrashDump loaded = Load(bent);
  for (const std::wstring& text :
       {DumpListText({loaded}, kFolders), DumpText(loaded)}) {
    EXPECT_THAT(text, Not(HasSubstr(L"\x1b")));
    EXPECT_THAT(text, HasSubstr(L"yyy"));
  }
  EXPECT_LE(WidestLine(DumpText(Load(m_bytes))), 80u);
  EXPECT_LE(WidestLine(DumpListText({Load(m_bytes)}, kFolders)), 80u);
}

TEST_F(DumpReportTest, ManagesWithABlankProgramName) {
  m_bytes.Put(m_parts.misc + 4, uint32_t{0});
  m_bytes.Put(m_parts.names, uint32_t{2});
  m_bytes.Put(m_parts.names + 4, uint16_t{L' '});
  EXPECT_THAT(DumpText(Load(m_bytes)), HasSubstr(L"  Program    -\n"));
}

// Whatever a file says, it can be shown.
TEST_F(DumpReportTest, ShowsAnyNumberAnywhere) {
  for (size_t at = 8; at + 4 <= m_bytes.bytes.size(); at += 4) {
    for (const uint32_t number : {0u, 0x20u, 0xFFFFFFFFu}) {
      DumpBytes bent = m_bytes;
      bent.Put(at, number);
      const CrashDump loaded = Load(bent);
      EXPECT_NE(DumpListText({loaded}, kFolders), L"");
      EXPECT_NE(DumpText(loaded), L"");
      EXPECT_NE(DumpJson(loaded).dump(), "");
    }
  }
}

TEST_F(DumpReportTest, SaysTheSameToPrograms) {
  const auto json = DumpJson(Load(m_bytes));
  EXPECT_EQ(json["number"], 7);
  EXPECT_EQ(json["written"], "2023-11-14T22:13:20Z");
  EXPECT_EQ(json["problem"], nullptr);
  EXPECT_EQ(json["exception"]["code"], "0xc0000005");
  EXPECT_EQ(json["exception"]["module"], "KOVAServer.dll");
  EXPECT_EQ(json["exception"]["offset"], "0x1234");
  EXPECT_EQ(json["exception"]["threadId"], 340);
  EXPECT_EQ(json["registers"]["rip"], "0x0000000180001234");
  EXPECT_EQ(json["threads"].size(), 2u);
  EXPECT_EQ(json["modules"][0]["version"], "1.2.3.4");
}

TEST_F(DumpReportTest, ListsForProgramsToo) {
  const auto json = DumpListJson({Load(m_bytes), Load(DumpBytes())}, kFolders);
  EXPECT_EQ(json["folders"].dump(), "[\"C:\\\\Dump\",\"D:\\\\Dump\"]");
  EXPECT_EQ(json["dumps"][0]["exception"]["name"], "access violation");
  EXPECT_EQ(json["dumps"][1]["exception"], nullptr);
  EXPECT_EQ(json["dumps"][1]["problem"], "is empty: writing it was cut short");
}

TEST(SizeTextTest, StaysShort) {
  EXPECT_EQ(SizeText(0), L"0 B");
  EXPECT_EQ(SizeText(9999), L"9999 B");
  EXPECT_EQ(SizeText(10000), L"10 KB");
  EXPECT_EQ(SizeText(421888), L"412 KB");
  EXPECT_EQ(SizeText(uint64_t{50} << 20), L"50 MB");
  EXPECT_EQ(SizeText(uint64_t{20} << 30), L"20 GB");
}

}  // namespace
