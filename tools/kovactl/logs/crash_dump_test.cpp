// Unit: finding and reading dump files in real folders.
#include "logs/crash_dump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "crash/dump.h"
#include "logs/sample_dump.h"
#include "logs/scratch_folder.h"

namespace {

using ::kova::ctl::CrashDump;
using ::kova::ctl::DumpNumber;
using ::kova::ctl::ExitCode;
using ::kova::ctl::FindDump;
using ::kova::ctl::LoadDumps;
using ::kova::ctl::test::DumpBytes;
using ::kova::ctl::test::DumpParts;
using ::kova::ctl::test::ScratchFolder;
using ::kova::ctl::test::SmallDump;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A small dump of a crash at that time.
std::vector<uint8_t> DumpOf(uint32_t seconds) {
  DumpParts parts;
  DumpBytes dump = SmallDump(parts);
  dump.Put(20, seconds);
  return dump.bytes;
}

TEST(DumpNumberTest, ReadsNamesAsTheServerGivesThem) {
  EXPECT_EQ(DumpNumber(L"KOVAServerCrash_0000.dmp"), 0u);
  EXPECT_EQ(DumpNumber(L"kovaservercrash_9999.DMP"), 9999u);
  for (int number : {0, 1, 42, 9999}) {
    EXPECT_EQ(DumpNumber(kova::DumpFileName(number)),
              static_cast<uint32_t>(number));
  }
  for (const wchar_t* name :
       {L"", L"KOVAServerCrash_00.dmp", L"KOVAServerCrash_00000.dmp",
        L"KOVAServerCrash_000x.dmp", L"xKOVAServerCrash_000.dmp",
        L"KOVAServerCrash_0000.txt", L"KOVAServerCrash_-001.dmp"}) {
    EXPECT_EQ(DumpNumber(name), std::nullopt) << name;
  }
}

TEST(LoadDumpsTest, ListsTheLatestFirst) {
  const ScratchFolder folder;
  static_cast<void>(folder.Add(L"KOVAServerCrash_0000.dmp", DumpOf(2000)));
  static_cast<void>(folder.Add(L"KOVAServerCrash_0001.dmp", DumpOf(1000)));
  static_cast<void>(folder.Add(L"other.dmp", DumpOf(3000)));
  static_cast<void>(folder.Add(L"notes.txt", {1, 2, 3}));
  std::vector<CrashDump> dumps;
  EXPECT_FALSE(LoadDumps({folder.Path()}, dumps));
  ASSERT_EQ(dumps.size(), 3u);
  EXPECT_EQ(dumps[0].FileName(), L"other.dmp");
  EXPECT_EQ(dumps[0].number, std::nullopt);
  EXPECT_EQ(dumps[1].number, 0u);
  EXPECT_EQ(dumps[2].number, 1u);
  EXPECT_EQ(dumps[2].FileTime(), (1000 + 11644473600u) * uint64_t{10000000});
  EXPECT_EQ(dumps[0].file.sizeBytes, DumpOf(0).size());
}

TEST(LoadDumpsTest, TakesTheFilesDateWhereTheDumpHasNone) {
  const ScratchFolder folder;
  static_cast<void>(folder.Add(L"a.dmp", DumpOf(0)));
  static_cast<void>(folder.Add(L"b.dmp", {}));
  std::vector<CrashDump> dumps;
  EXPECT_FALSE(LoadDumps({folder.Path()}, dumps));
  ASSERT_EQ(dumps.size(), 2u);
  for (const CrashDump& dump : dumps) {
    EXPECT_EQ(dump.FileTime(), dump.file.writtenFileTime);
    EXPECT_GT(dump.FileTime(), uint64_t{130'000'000'000'000'000});
  }
}

TEST(LoadDumpsTest, ManagesWithoutAFolder) {
  std::vector<CrashDump> dumps;
  EXPECT_FALSE(LoadDumps({L"C:\\no such folder"}, dumps));
  EXPECT_THAT(dumps, IsEmpty());
}

TEST(FindDumpTest, TakesNumberNameOrPath) {
  const ScratchFolder folder;
  const std::wstring path =
      folder.Add(L"KOVAServerCrash_0003.dmp", DumpOf(1000));
  for (const std::wstring& what :
       {std::wstring(L"3"), std::wstring(L"0003"),
        std::wstring(L"kovaservercrash_0003.dmp"), path}) {
    CrashDump found;
    EXPECT_FALSE(FindDump({folder.Path()}, what, found));
    EXPECT_EQ(found.number, 3u);
    EXPECT_TRUE(found.dump);
    EXPECT_THAT(found.file.path, EndsWith(L"\\KOVAServerCrash_0003.dmp"));
  }
}

TEST(FindDumpTest, SaysThatThereIsNoneOrMoreThanOne) {
  const ScratchFolder folder;
  static_cast<void>(folder.Add(L"KOVAServerCrash_0003.dmp", DumpOf(1)));
  CrashDump found;
  for (const wchar_t* what : {L"4", L"x.dmp", L"", L"C:\\nowhere\\x.dmp"}) {
    const auto failure = FindDump({folder.Path()}, what, found);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, ExitCode::kNotFound);
    EXPECT_THAT(failure->text, HasSubstr(folder.Path()));
  }
  const auto failure = FindDump({folder.Path(), folder.Path()}, L"3", found);
  ASSERT_TRUE(failure);
  EXPECT_THAT(failure->text, HasSubstr(L"several dumps 3"));
}

TEST(FindDumpTest, SaysWhatIsWrongWithAFile) {
  const ScratchFolder folder;
  static_cast<void>(folder.Add(L"a.dmp", {}));
  static_cast<void>(folder.Add(L"b.dmp", {'M', 'Z', 0, 0}));
  CrashDump found;
  EXPECT_FALSE(FindDump({folder.Path()}, L"a.dmp", found));
  EXPECT_FALSE(found.dump);
  EXPECT_THAT(found.problem, HasSubstr(L"is empty"));
  EXPECT_FALSE(FindDump({folder.Path()}, L"b.dmp", found));
  EXPECT_THAT(found.problem, HasSubstr(L"is not a minidump"));
}

TEST(DumpFoldersTest, AreBelowApplicationDataAndTemporaryFolder) {
  const std::vector<std::wstring> folders = kova::ctl::DumpFolders();
  ASSERT_EQ(folders.size(), 2u);
  EXPECT_THAT(folders[0], EndsWith(L"\\ProgramData\\Corvane\\Drivers\\Dump"));
  EXPECT_THAT(folders[1], EndsWith(L"\\Temp\\Corvane\\Drivers\\Dump"));
}

}  // namespace
