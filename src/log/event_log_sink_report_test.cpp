// Patched: every channel in every kind of event log, and the order of sinks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "log/logger.h"
#include "test/support/fake_tick_count.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"

namespace {

using kova::test::DeleteLogMask;
using kova::test::FakeTickCount;
using kova::test::ImportPatch;
using testing::ElementsAre;
using tk::LogChannel;

constexpr wchar_t kName[] = L"test event reports";
constexpr wchar_t kApplicationKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application\\"
    L"test event reports";
constexpr wchar_t kSystemKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\"
    L"test event reports";

struct Report {
  WORD type;
  WORD category;
  DWORD id;
  uint64_t version;
  uint64_t channel;
  uint64_t last;
  std::wstring line;

  bool operator==(const Report&) const = default;
};

// The calls of all sinks, in order.
std::vector<std::string> g_calls;
std::vector<Report> g_reports;

BOOL WINAPI RecordReport(HANDLE, WORD type, WORD category, DWORD id, PSID, WORD,
                         DWORD sizeBytes, LPCWSTR* texts, LPVOID data) {
  uint64_t numbers[7] = {};
  EXPECT_EQ(sizeBytes, sizeof(numbers));
  std::memcpy(numbers, data, sizeof(numbers));
  g_reports.push_back(
      {type, category, id, numbers[0], numbers[3], numbers[6], texts[0]});
  g_calls.emplace_back("event log");
  return TRUE;
}
HANDLE WINAPI GiveSource(LPCWSTR, LPCWSTR) {
  return reinterpret_cast<HANDLE>(uintptr_t{0x4660});
}
HANDLE WINAPI RefuseFile(LPCWSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD,
                         DWORD, HANDLE) {
  g_calls.emplace_back("file");
  return INVALID_HANDLE_VALUE;
}
void WINAPI RecordShown(LPCWSTR) { g_calls.emplace_back("debugger"); }

class EventReportTest : public testing::Test {
 protected:
  EventReportTest()
      : m_show(nullptr, "OutputDebugStringW", &RecordShown),
        m_register(nullptr, "RegisterEventSourceW", &GiveSource),
        m_report(nullptr, "ReportEventW", &RecordReport),
        m_file(nullptr, "CreateFileW", &RefuseFile) {
    g_calls.clear();
    g_reports.clear();
    Clean();
  }
  ~EventReportTest() override { Clean(); }

  static void Clean() {
    DeleteLogMask(kName);
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kApplicationKey);
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kSystemKey);
  }
  static std::shared_ptr<tk::Logger> Make(uint32_t mask, uint32_t kind) {
    return std::make_shared<tk::Logger>(kName, mask,
                                        std::vector<tk::LogFormatter>(),
                                        std::vector<tk::LogSink>(), kind);
  }

  FakeTickCount m_clock;
  const ImportPatch<decltype(OutputDebugStringW)> m_show;
  const ImportPatch<decltype(RegisterEventSourceW)> m_register;
  const ImportPatch<decltype(ReportEventW)> m_report;
  const ImportPatch<decltype(CreateFileW)> m_file;
};

struct ChannelRow {
  uint32_t channel;
  const wchar_t* line;
};
constexpr ChannelRow kChannels[] = {
    {0x80000000, L"Error text"},
    {0x40000000, L"Warning text"},
    {0x20000000, L"Info text"},
    {0x10000000, L"DetailInfo text"},
    {0x00000001, L"DetailInfoA text"},
    {0x00000002, L"DetailInfoB text"},
    {0x00000004, L"DetailInfoC text"},
    {0x00000008, L"DetailInfoD text"},
    {0x00000010, L"DetailInfoE text"},
    {0x00000020, L"DetailInfoF text"},
    {0x00000040, L"DetailInfoG text"},
    {0x00000080, L"DetailInfoH text"},
    {0x00000100, L"DetailInfoI text"},
    {0x00000200, L"DetailInfoJ text"},
    {0x00000400, L"DetailInfoK text"},
    {0x00000800, L"DetailInfoL text"},
    {0x00001000, L"DetailInfoM text"},
    {0x00002000, L"DetailInfoN text"},
    {0x00004000, L"DetailInfoO text"},
    {0x00008000, L"DetailInfoP text"},
    {0xC0000000, L" text"},
    {0x60000000, L" text"},
    {0x30000000, L" text"},
};
// For each kind of log: errors, warnings, others.
constexpr DWORD kIds[3][3] = {{0xCFFF0300, 0x8FFF0200, 0x4FFF0100},
                              {0xC0FF0600, 0x80FF0500, 0x40FF0400},
                              {0x4FFF0100, 0x4FFF0100, 0x4FFF0100}};
constexpr WORD kTypes[] = {1, 2, 4};

size_t RankOf(uint32_t channel) {
  if (channel >= 0x80000000) return 0;
  return channel >= 0x40000000 ? 1 : 2;
}

TEST_F(EventReportTest, FilesEveryChannelInEveryKindOfLog) {
  for (uint32_t kind = 0; kind < 3; ++kind) {
    const auto logger = Make(0xF000FFFF, kind);
    g_reports.clear();
    std::vector<Report> expected;
    for (const ChannelRow& row : kChannels) {
      logger->Log(static_cast<LogChannel>(row.channel), L"text");
      const size_t rank = RankOf(row.channel);
      expected.push_back(
          {kTypes[rank], 0, kIds[kind][rank], 4, row.channel, 0, row.line});
    }
    EXPECT_TRUE(g_reports == expected) << "kind " << kind;
    Clean();
  }
}

TEST_F(EventReportTest, TheEventLogComesFirstAndTheDebuggerLast) {
  const auto logger =
      Make(0x20000000 | tk::kFileSinkOn | tk::kDebuggerShowsAll, 0);
  logger->Log(LogChannel::Info, L"text");
  EXPECT_THAT(g_calls, ElementsAre("event log", "file", "debugger"));
}

TEST_F(EventReportTest, EachSwitchConcernsItsSinkAlone) {
  struct Row {
    uint32_t switches;
    std::vector<std::string> calls;
  };
  const Row rows[] = {
      {0, {"event log"}},
      {tk::kFileSinkOn, {"event log", "file"}},
      {tk::kDebuggerShowsAll, {"event log", "debugger"}},
  };
  for (const Row& row : rows) {
    Clean();
    const auto logger = Make(0x20000000 | row.switches, 0);
    g_calls.clear();
    logger->Log(LogChannel::Info, L"text");
    EXPECT_EQ(g_calls, row.calls) << std::hex << row.switches;
  }
}

int g_closedKeys = 0;
LSTATUS WINAPI CountClosedKeys(HKEY) {
  ++g_closedKeys;
  return ERROR_SUCCESS;
}

TEST_F(EventReportTest, TheKeyOfTheMaskStaysOpenWhenALoggerGoes) {
  auto logger = Make(0, 0);
  const ImportPatch<decltype(RegCloseKey)> close(nullptr, "RegCloseKey",
                                                 &CountClosedKeys);
  g_closedKeys = 0;
  logger.reset();
  EXPECT_EQ(g_closedKeys, 0);
}

TEST_F(EventReportTest, NoSourceIsEverGivenBack) {
  EXPECT_EQ(kova::test::FindImportSlot(nullptr, "DeregisterEventSource"),
            nullptr);
}

}  // namespace
