// Patched: many threads log through all sinks of one logger at once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "base/handles.h"
#include "log/logger.h"
#include "test/support/fake_tick_count.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"
#include "text/date_text.h"

namespace {

using kova::test::DeleteLogMask;
using kova::test::FakeTickCount;
using kova::test::ImportPatch;
using tk::LogChannel;

namespace fs = std::filesystem;

constexpr int kThreads = 16;
constexpr int kLinesEach = 1600;
constexpr int kDeletions = 10;
constexpr size_t kAllLines = size_t{kThreads} * kLinesEach;
constexpr wchar_t kName[] = L"test concurrent logging";
constexpr wchar_t kPath[] = L"C:\\Log Files\\test concurrent logging.txt";
constexpr uint32_t kAllSinks =
    0xE0000000 | tk::kFileSinkOn | tk::kDebuggerShowsAll;

struct ChannelRow {
  LogChannel channel;
  const wchar_t* prefix;
};
constexpr ChannelRow kChannels[] = {{LogChannel::Error, L"Error "},
                                    {LogChannel::Warning, L"Warning "},
                                    {LogChannel::Info, L"Info "}};

ChannelRow ChannelOf(int thread) {
  return kChannels[static_cast<size_t>(thread) % std::size(kChannels)];
}

// Every line of every thread is different and says which it is, and its length
// varies, so that text in a wrong place is seen.
std::wstring MessageOf(int thread, int number) {
  wchar_t text[64] = {};
  std::swprintf(text, std::size(text), L"<%d:%d>", thread, number);
  const auto letters = static_cast<size_t>((thread * 7 + number) % 40);
  return text + std::wstring(letters, static_cast<wchar_t>(L'a' + thread));
}

// Checks that lines arrive whole, each once, and those of one thread in the
// order in which it logged them.
class LineCensus {
 public:
  void Add(const std::wstring& line) {
    int thread = -1;
    int number = -1;
    const size_t start = line.find(L'<');
    if (start == std::wstring::npos ||
        std::swscanf(line.c_str() + start, L"<%d:%d>", &thread, &number) != 2 ||
        thread < 0 || thread >= kThreads || number != m_next[thread] ||
        line != ChannelOf(thread).prefix + MessageOf(thread, number)) {
      ++m_bad;
      return;
    }
    ++m_next[thread];
  }
  void ExpectComplete() const {
    EXPECT_EQ(m_bad, 0);
    EXPECT_THAT(m_next, testing::Each(kLinesEach));
  }

 private:
  std::array<int, kThreads> m_next = {};
  int m_bad = 0;
};

// What the sinks called. A slot is taken without a lock, which would hide what
// the sinks themselves fail to serialise.
std::vector<std::wstring> g_shown;
std::atomic<size_t> g_shownCount;
void WINAPI RecordShown(LPCWSTR text) {
  const size_t slot = g_shownCount++;
  if (slot < g_shown.size()) g_shown[slot] = text;
}

// Reports of one logger must come one at a time.
std::vector<std::wstring> g_reported;
std::atomic<size_t> g_reportedCount;
std::atomic<int> g_reporting;
std::atomic<int> g_overlaps;
BOOL WINAPI RecordReport(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD,
                         LPCWSTR* texts, LPVOID) {
  if (g_reporting++ != 0) ++g_overlaps;
  const size_t slot = g_reportedCount++;
  if (slot < g_reported.size()) g_reported[slot] = texts[0];
  --g_reporting;
  return TRUE;
}
HANDLE WINAPI GiveSource(LPCWSTR, LPCWSTR) {
  return reinterpret_cast<HANDLE>(uintptr_t{0x4660});
}

// The whole text that each write starts at, not only the half it asks for.
std::array<std::wstring, 1000> g_written;
std::atomic<size_t> g_writtenCount;
decltype(WriteFile)* g_writeFile = nullptr;
BOOL WINAPI RecordWrite(HANDLE file, LPCVOID data, DWORD sizeBytes,
                        DWORD* written, OVERLAPPED* overlapped) {
  const size_t slot = g_writtenCount++;
  if (slot < g_written.size()) {
    g_written[slot].assign(static_cast<const wchar_t*>(data), sizeBytes - 1);
  }
  return g_writeFile(file, data, sizeBytes, written, overlapped);
}

constexpr int64_t kNowSeconds = 1795218734;
void WINAPI StandStill(FILETIME* time) {
  const uint64_t units = (kNowSeconds + 11644473600) * 10000000;
  time->dwLowDateTime = static_cast<DWORD>(units);
  time->dwHighDateTime = static_cast<DWORD>(units >> 32);
}

std::vector<std::wstring> SplitAtStamps(const std::wstring& text) {
  const std::wstring stamp = kova::LocalTimeText(kNowSeconds) + L" -- ";
  std::vector<std::wstring> lines;
  size_t start = text.find(stamp);
  EXPECT_EQ(start, 0u);
  while (start != std::wstring::npos) {
    start += stamp.size();
    const size_t end = text.find(stamp, start);
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

bool AreHeapsSound() {
  std::array<HANDLE, 64> heaps = {};
  const DWORD count = ::GetProcessHeaps(heaps.size(), heaps.data());
  for (DWORD i = 0; i < count && i < heaps.size(); ++i) {
    if (!::HeapValidate(heaps[i], 0, nullptr)) return false;
  }
  return count > 0;
}

class ConcurrentLoggingTest : public testing::Test {
 protected:
  ConcurrentLoggingTest()
      : m_show(nullptr, "OutputDebugStringW", &RecordShown),
        m_register(nullptr, "RegisterEventSourceW", &GiveSource),
        m_report(nullptr, "ReportEventW", &RecordReport),
        m_write(nullptr, "WriteFile", &RecordWrite),
        m_time(nullptr, "GetSystemTimeAsFileTime", &StandStill) {
    g_writeFile = m_write.Original();
    g_shown.assign(kAllLines, {});
    g_shownCount = 0;
    g_reported.assign(kAllLines, {});
    g_reportedCount = 0;
    g_overlaps = 0;
    g_written = {};
    g_writtenCount = 0;
    Clean();
  }
  ~ConcurrentLoggingTest() override { Clean(); }

  static void Clean() {
    DeleteLogMask(kName);
    ::DeleteFileW(kPath);
  }

  // All lines of one thread. Meanwhile the masks are refreshed again and again
  // and an administrator deletes the file now and then.
  void LogAll(tk::Logger& logger, int thread) {
    for (int number = 0; number < kLinesEach; ++number) {
      m_clock.Advance(10);
      logger.Log(ChannelOf(thread).channel, MessageOf(thread, number));
      if (thread == 0 && (number + 1) % (kLinesEach / kDeletions) == 0) {
        DeleteTheFile();
      }
    }
  }
  // It is there, for a line has just been logged. One that another thread still
  // writes would stay until that has closed it, and could be deleted twice.
  static void DeleteTheFile() {
    for (;;) {
      const kova::UniqueFile alone(
          ::CreateFileW(kPath, DELETE, 0, nullptr, OPEN_EXISTING,
                        FILE_FLAG_DELETE_ON_CLOSE, nullptr));
      if (alone.IsValid()) return;
      ASSERT_EQ(::GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
      ::SwitchToThread();
    }
  }
  void LogFromAllThreads(tk::Logger& logger) {
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] { LogAll(logger, thread); });
    }
    for (std::thread& thread : threads) thread.join();
  }

  FakeTickCount m_clock;
  const ImportPatch<decltype(OutputDebugStringW)> m_show;
  const ImportPatch<decltype(RegisterEventSourceW)> m_register;
  const ImportPatch<decltype(ReportEventW)> m_report;
  const ImportPatch<decltype(WriteFile)> m_write;
  const ImportPatch<decltype(GetSystemTimeAsFileTime)> m_time;
};

void ExpectAllLines(const std::vector<std::wstring>& lines) {
  LineCensus census;
  for (const std::wstring& line : lines) census.Add(line);
  census.ExpectComplete();
}

// The file receives half of a text's bytes; here the text is what counts. Each
// earlier one must be a beginning of the last.
void ExpectWholeTexts(const std::wstring& last) {
  const size_t count = std::min(g_writtenCount.load(), g_written.size());
  EXPECT_GE(count, size_t{kDeletions});
  for (size_t i = 0; i < count; ++i) {
    EXPECT_TRUE(last.compare(0, g_written[i].size(), g_written[i]) == 0)
        << "write " << i << " of " << count;
  }
}

std::string FileBytes() {
  std::ifstream file(fs::path(kPath), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST_F(ConcurrentLoggingTest, LosesAndMixesNothingInAnySink) {
  const auto logger = tk::CreateLogger(kName, kAllSinks);
  LogFromAllThreads(*logger);
  EXPECT_EQ(g_shownCount, kAllLines);
  ExpectAllLines(g_shown);
  EXPECT_EQ(g_reportedCount, kAllLines);
  EXPECT_EQ(g_overlaps, 0);
  ExpectAllLines(g_reported);

  // One more line, to have the text of all lines before it written.
  ::DeleteFileW(kPath);
  logger->Log(LogChannel::Info, L"end");
  ASSERT_GT(g_writtenCount, 0u);
  ASSERT_LE(g_writtenCount, g_written.size());
  const std::wstring& text = g_written[g_writtenCount - 1];
  ExpectWholeTexts(text);
  std::vector<std::wstring> lines = SplitAtStamps(text);
  EXPECT_EQ(lines.back(), L"Info end");
  lines.pop_back();
  ExpectAllLines(lines);
  EXPECT_TRUE(FileBytes() ==
              std::string(reinterpret_cast<const char*>(text.c_str()),
                          text.size() + 1));
  EXPECT_TRUE(AreHeapsSound());
}

}  // namespace
