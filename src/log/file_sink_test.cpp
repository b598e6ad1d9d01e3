// Patched: the log file in its real folder, under a clock that stands still.
#include "log/sinks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "base/handles.h"
#include "test/support/fake_tick_count.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"
#include "text/date_text.h"

namespace {

using kova::test::DeleteLogMask;
using kova::test::FakeTickCount;
using kova::test::ImportPatch;
using kova::test::LogCapture;
using testing::ElementsAre;
using tk::LogChannel;

namespace fs = std::filesystem;

constexpr wchar_t kFolder[] = L"C:\\Log Files";
constexpr wchar_t kName[] = L"test file sink";
constexpr wchar_t kPath[] = L"C:\\Log Files\\test file sink.txt";
constexpr uint32_t kInfoToFile = 0x20000000 | tk::kFileSinkOn;

// 2026-11-20 23:52:14 UTC in units of 100 ns since 1601, plus 0.9 s.
constexpr int64_t kNowSeconds = 1795218734;
void WINAPI StandStill(FILETIME* time) {
  const uint64_t units = (kNowSeconds + 11644473600) * 10000000 + 9000000;
  time->dwLowDateTime = static_cast<DWORD>(units);
  time->dwHighDateTime = static_cast<DWORD>(units >> 32);
}

std::string BytesOf(const std::wstring& text, size_t count) {
  return std::string(reinterpret_cast<const char*>(text.c_str()), count);
}

std::string FileBytes() {
  std::ifstream file(fs::path(kPath), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

class FileSinkTest : public testing::Test {
 protected:
  FileSinkTest() : m_time(nullptr, "GetSystemTimeAsFileTime", &StandStill) {
    Clean();
  }
  ~FileSinkTest() override { Clean(); }

  static void Clean() {
    DeleteLogMask(kName);
    std::error_code none;
    fs::remove(kPath, none);
  }
  // Made on a thread of its own, whose storage checks for the folder anew.
  static std::shared_ptr<tk::Logger> Make(uint32_t mask) {
    std::shared_ptr<tk::Logger> logger;
    std::thread([&] { logger = tk::CreateLogger(kName, mask); }).join();
    return logger;
  }
  static std::wstring Stamped(const std::wstring& line) {
    return kova::LocalTimeText(kNowSeconds) + L" -- " + line;
  }

  const ImportPatch<decltype(GetSystemTimeAsFileTime)> m_time;
  FakeTickCount m_clock;
  LogCapture m_capture;
};

TEST_F(FileSinkTest, MakesTheFolderEvenWhileItIsOff) {
  fs::remove_all(kFolder);
  const auto logger = Make(0x20000000);
  EXPECT_TRUE(fs::is_directory(kFolder));
  logger->Log(LogChannel::Info, L"text");
  logger->Error(L"text");
  EXPECT_FALSE(fs::exists(kPath));
}

TEST_F(FileSinkTest, WritesHalfOfTheBytesPlusOneOnce) {
  const auto logger = Make(kInfoToFile);
  logger->Log(LogChannel::Info, L"first");
  const std::wstring text = Stamped(L"Info first");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
  EXPECT_EQ(text.find(L"2026 "), 20u);
  logger->Log(LogChannel::Info, L"second");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
}

TEST_F(FileSinkTest, WritesEverythingOnceTheFileIsGone) {
  const auto logger = Make(kInfoToFile);
  logger->Log(LogChannel::Info, L"one");
  logger->Error(L"two");
  fs::remove(kPath);
  logger->Warning(L"three");
  const std::wstring text =
      Stamped(L"Info one") + Stamped(L"Error two") + Stamped(L"Warning three");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
}

TEST_F(FileSinkTest, KeepsTheTextWhileTheFileCannotBeMade) {
  fs::create_directory(kPath);
  const auto logger = Make(kInfoToFile);
  logger->Log(LogChannel::Info, L"one");
  fs::remove(kPath);
  logger->Log(LogChannel::Info, L"two");
  const std::wstring text = Stamped(L"Info one") + Stamped(L"Info two");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
}

TEST_F(FileSinkTest, FollowsTheMaskInTheRegistry) {
  const auto logger = Make(0x20000000);
  kova::test::SetLogMask(kInfoToFile, kName);
  m_clock.Advance(5000);
  logger->Error(L"lost");
  m_clock.Advance(1);
  logger->Error(L"kept");
  const std::wstring text = Stamped(L"Error kept");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
}

TEST_F(FileSinkTest, TakesAnEmbeddedZeroAsACharacter) {
  const auto logger = Make(kInfoToFile);
  logger->Error(std::wstring(L"a\0b", 3));
  EXPECT_EQ(FileBytes().size(), Stamped(L"Error abc").size() + 1);
}

int g_checks = 0;
DWORD WINAPI NoFolder(LPCWSTR path) {
  EXPECT_STREQ(path, kFolder);
  ++g_checks;
  return INVALID_FILE_ATTRIBUTES;
}
BOOL WINAPI FailToCreateFolder(LPCWSTR path, SECURITY_ATTRIBUTES*) {
  EXPECT_STREQ(path, kFolder);
  return FALSE;
}

TEST_F(FileSinkTest, LooksForTheFolderOncePerThread) {
  const ImportPatch<decltype(GetFileAttributesW)> attributes(
      nullptr, "GetFileAttributesW", &NoFolder);
  const ImportPatch<decltype(CreateDirectoryW)> create(
      nullptr, "CreateDirectoryW", &FailToCreateFolder);
  g_checks = 0;
  std::thread([] {
    (void)tk::CreateLogger(kName, 0);
    (void)tk::CreateLogger(std::wstring(kName) + L" 2", 0);
  }).join();
  EXPECT_EQ(g_checks, 1);
  (void)Make(0);
  EXPECT_EQ(g_checks, 2);
  DeleteLogMask((std::wstring(kName) + L" 2").c_str());
}

DWORD g_attributes = 0;
int g_made = 0;
DWORD WINAPI GiveAttributes(LPCWSTR) { return g_attributes; }
BOOL WINAPI CountMade(LPCWSTR, SECURITY_ATTRIBUTES* security) {
  EXPECT_EQ(security, nullptr);
  ++g_made;
  return TRUE;
}

TEST_F(FileSinkTest, MakesTheFolderUnlessThereIsOne) {
  struct Row {
    DWORD attributes;
    int made;
  };
  constexpr Row kRows[] = {
      {INVALID_FILE_ATTRIBUTES, 1},
      {FILE_ATTRIBUTE_NORMAL, 1},
      {FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY, 1},
      {FILE_ATTRIBUTE_DIRECTORY, 0},
      {FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN, 0},
  };
  const ImportPatch<decltype(GetFileAttributesW)> attributes(
      nullptr, "GetFileAttributesW", &GiveAttributes);
  const ImportPatch<decltype(CreateDirectoryW)> create(
      nullptr, "CreateDirectoryW", &CountMade);
  for (const Row& row : kRows) {
    g_attributes = row.attributes;
    g_made = 0;
    (void)Make(0);
    EXPECT_EQ(g_made, row.made) << std::hex << row.attributes;
  }
}

TEST_F(FileSinkTest, WithoutAFolderNothingIsWritten) {
  fs::remove_all(kFolder);
  {
    const ImportPatch<decltype(CreateDirectoryW)> create(
        nullptr, "CreateDirectoryW", &FailToCreateFolder);
    const auto logger = Make(kInfoToFile);
    logger->Error(L"text");
  }
  EXPECT_FALSE(fs::exists(kFolder));
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Error text"));
}

struct Opening {
  DWORD access = 0;
  DWORD share = 0;
  DWORD how = 0;
  DWORD attributes = 0;
};
Opening g_opening;

HANDLE WINAPI RecordOpening(LPCWSTR path, DWORD access, DWORD share,
                            SECURITY_ATTRIBUTES*, DWORD how, DWORD attributes,
                            HANDLE) {
  EXPECT_STREQ(path, kPath);
  g_opening = {access, share, how, attributes};
  return INVALID_HANDLE_VALUE;
}

TEST_F(FileSinkTest, OnlyEverMakesANewFile) {
  const auto logger = Make(kInfoToFile);
  const ImportPatch<decltype(CreateFileW)> patch(nullptr, "CreateFileW",
                                                 &RecordOpening);
  logger->Error(L"text");
  EXPECT_EQ(g_opening.access, GENERIC_WRITE);
  EXPECT_EQ(g_opening.share, 7u);
  EXPECT_EQ(g_opening.how, static_cast<DWORD>(CREATE_NEW));
  EXPECT_EQ(g_opening.attributes, static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL));
}

// The whole text that a write starts at, not only the part it asks for.
std::wstring g_written;
BOOL WINAPI RecordWrite(HANDLE, LPCVOID data, DWORD, DWORD*, OVERLAPPED*) {
  g_written = static_cast<const wchar_t*>(data);
  return FALSE;
}

TEST_F(FileSinkTest, AFailedWriteLeavesAnEmptyFileAndTheText) {
  const auto logger = Make(kInfoToFile);
  {
    const ImportPatch<decltype(WriteFile)> patch(nullptr, "WriteFile",
                                                 &RecordWrite);
    logger->Error(L"one");
    logger->Error(L"two");
  }
  EXPECT_EQ(g_written, Stamped(L"Error one"));
  EXPECT_EQ(fs::file_size(kPath), 0u);
  fs::remove(kPath);
  logger->Error(L"three");
  const std::wstring text =
      Stamped(L"Error one") + Stamped(L"Error two") + Stamped(L"Error three");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
}

TEST_F(FileSinkTest, ClosesTheFileAtOnce) {
  const auto logger = Make(kInfoToFile);
  logger->Error(L"text");
  const kova::UniqueFile alone(::CreateFileW(kPath, GENERIC_READ, 0, nullptr,
                                             OPEN_EXISTING, 0, nullptr));
  EXPECT_TRUE(alone.IsValid());
}

TEST_F(FileSinkTest, LogsOfOneNameFromTwoThreadsShareTheFileNotTheText) {
  const auto first = Make(kInfoToFile);
  const auto second = Make(kInfoToFile);
  first->Error(L"one");
  second->Error(L"two");
  fs::remove(kPath);
  second->Error(L"three");
  const std::wstring text = Stamped(L"Error two") + Stamped(L"Error three");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
}

HANDLE g_holding = nullptr;
decltype(&WaitForSingleObjectEx) g_wait = nullptr;
// Stays for ever as soon as it has waited for the file sink's lock, the second
// that a line takes.
DWORD WINAPI HoldForEver(HANDLE mutex, DWORD timeoutMs, BOOL alertable) {
  static int waits = 0;
  const DWORD result = g_wait(mutex, timeoutMs, alertable);
  if (++waits == 2) {
    ::SetEvent(g_holding);
    ::Sleep(INFINITE);
  }
  return result;
}

DWORD WINAPI LogOneError(void* logger) {
  static_cast<tk::Logger*>(logger)->Error(L"text");
  return 0;
}

TEST_F(FileSinkTest, AThreadThatIsKilledInTheSinkKeepsNobodyOut) {
  const auto logger = Make(kInfoToFile);
  const kova::UniqueKernelHandle holding(
      ::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  g_holding = holding.Get();
  const auto start = [&] {
    return kova::UniqueKernelHandle(
        ::CreateThread(nullptr, 0, &LogOneError, logger.get(), 0, nullptr));
  };
  {
    const ImportPatch<decltype(WaitForSingleObjectEx)> patch(
        nullptr, "WaitForSingleObjectEx", &HoldForEver);
    g_wait = patch.Original();
    const kova::UniqueKernelHandle stuck = start();
    ASSERT_EQ(::WaitForSingleObject(g_holding, 10000), WAIT_OBJECT_0);
    ::TerminateThread(stuck.Get(), 0);
    ASSERT_EQ(::WaitForSingleObject(stuck.Get(), 10000), WAIT_OBJECT_0);
  }
  const kova::UniqueKernelHandle other = start();
  ASSERT_EQ(::WaitForSingleObject(other.Get(), 10000), WAIT_OBJECT_0);
  const std::wstring text = Stamped(L"Error text");
  EXPECT_EQ(FileBytes(), BytesOf(text, text.size() + 1));
}

}  // namespace
