// Patched: reports to the event log, which are recorded instead of filed.
#include "log/sinks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "log/event_source.h"
#include "test/support/fake_tick_count.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"

namespace {

using kova::test::DeleteLogMask;
using kova::test::FakeTickCount;
using kova::test::ImportPatch;
using kova::test::LogCapture;
using kova::test::SetLogMask;
using testing::ElementsAre;
using testing::IsEmpty;
using tk::LogChannel;

struct Report {
  HANDLE source;
  WORD type;
  WORD category;
  DWORD id;
  std::wstring line;
  std::array<uint64_t, 7> data;
};

const HANDLE kSource = reinterpret_cast<HANDLE>(uintptr_t{0x4660});
HANDLE g_source = kSource;
std::vector<std::wstring> g_registered;
std::vector<Report> g_reports;

HANDLE WINAPI RecordSource(LPCWSTR server, LPCWSTR name) {
  EXPECT_EQ(server, nullptr);
  g_registered.emplace_back(name);
  return g_source;
}

BOOL WINAPI RecordReport(HANDLE source, WORD type, WORD category, DWORD id,
                         PSID user, WORD count, DWORD sizeBytes, LPCWSTR* texts,
                         LPVOID data) {
  EXPECT_EQ(user, nullptr);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(sizeBytes, 56u);
  Report report = {source, type, category, id, texts[0], {}};
  std::memcpy(report.data.data(), data, sizeof(report.data));
  g_reports.push_back(report);
  return FALSE;
}

LSTATUS WINAPI FailToCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                               SECURITY_ATTRIBUTES*, HKEY*, DWORD*) {
  ::SetLastError(0xABC);
  return ERROR_ACCESS_DENIED;
}

class EventLogSinkTest : public testing::Test {
 protected:
  EventLogSinkTest()
      : m_register(nullptr, "RegisterEventSourceW", &RecordSource),
        m_report(nullptr, "ReportEventW", &RecordReport) {
    g_source = kSource;
    g_registered.clear();
    g_reports.clear();
    Clean();
  }
  ~EventLogSinkTest() override { Clean(); }

  void Clean() const {
    for (const uint32_t kind : {0, 1}) {
      ::RegDeleteKeyW(HKEY_LOCAL_MACHINE,
                      kova::EventSourceKeyPath(kind, m_name).c_str());
    }
    DeleteLogMask(m_name.c_str());
  }
  std::shared_ptr<tk::Logger> Make(uint32_t mask, uint32_t kind = 0) {
    return std::make_shared<tk::Logger>(m_name, mask,
                                        std::vector<tk::LogFormatter>(),
                                        std::vector<tk::LogSink>(), kind);
  }

  const std::wstring m_name = L"test event log sink";
  LogCapture m_capture;
  FakeTickCount m_clock;
  const ImportPatch<decltype(RegisterEventSourceW)> m_register;
  const ImportPatch<decltype(ReportEventW)> m_report;
};

TEST_F(EventLogSinkTest, SaysSoWhereTheKeyCannotBeHadAndRegistersAllTheSame) {
  {
    const ImportPatch<decltype(RegCreateKeyExW)> patch(
        nullptr, "RegCreateKeyExW", &FailToCreateKey);
    (void)Make(0);
  }
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(L"WinEventLogSink(...) - RegCreateKeyEx(...) failed "
                          L"with error abc\n"));
  EXPECT_THAT(g_registered, ElementsAre(m_name));
}

TEST_F(EventLogSinkTest, WithoutASourceNothingIsReported) {
  g_source = nullptr;
  const auto logger = Make(0xFFFFFFFF);
  logger->Error(L"text");
  EXPECT_THAT(g_reports, IsEmpty());
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Error text"));
}

// The most that Windows takes; a longer string makes it refuse the event.
constexpr size_t kMostCharacters = 31839;
const std::wstring kMark = L"... [cut]";

TEST_F(EventLogSinkTest, ALineThatIsTooLongIsCutInTheEventAlone) {
  const auto logger = Make(0);
  const std::wstring start = L"Error ";
  for (const size_t length :
       {kMostCharacters - 1, kMostCharacters, kMostCharacters + 1}) {
    const std::wstring text(length - start.size(), L'x');
    logger->Error(text);
    ASSERT_EQ(g_reports.size(), 1u);
    std::wstring expected = start + text;
    if (length > kMostCharacters) {
      expected.resize(kMostCharacters - kMark.size());
      expected += kMark;
    }
    EXPECT_TRUE(g_reports[0].line == expected) << g_reports[0].line.size();
    EXPECT_TRUE(m_capture.Take() == std::vector<std::wstring>{start + text});
    g_reports.clear();
  }
}

// Of a pair that does not fit as a whole, neither half is kept.
TEST_F(EventLogSinkTest, TheCutSplitsNoSurrogatePair) {
  const auto logger = Make(0);
  const std::wstring pair = L"\U0001F5A8";
  ASSERT_EQ(pair.size(), 2u);
  const size_t keptCharacters =
      kMostCharacters - kMark.size() - std::wcslen(L"Error ");
  for (const size_t before : {keptCharacters - 2, keptCharacters - 1}) {
    const std::wstring text(before, L'x');
    logger->Error(text + pair + std::wstring(100, L'y'));
    ASSERT_EQ(g_reports.size(), 1u);
    const bool fits = before + 2 <= keptCharacters;
    std::wstring expected = L"Error " + text;
    if (fits) expected += pair;
    EXPECT_TRUE(g_reports[0].line == expected + kMark);
    g_reports.clear();
  }
}

// The event's string ends at the first zero, however long the line is.
TEST_F(EventLogSinkTest, WhatStandsBehindAZeroIsNotCounted) {
  const auto logger = Make(0);
  logger->Error(std::wstring(L"a\0", 2) + std::wstring(kMostCharacters, L'x'));
  ASSERT_EQ(g_reports.size(), 1u);
  EXPECT_EQ(g_reports[0].line, L"Error a");
}

DWORD WINAPI TickCountWithTopBit() { return 0x80000001; }
BOOL WINAPI FixedCounter(LARGE_INTEGER* counter) {
  counter->QuadPart = 0x123456789ABC;
  return TRUE;
}

TEST_F(EventLogSinkTest, AttachesSevenNumbers) {
  const ImportPatch<decltype(GetTickCount)> ticks(nullptr, "GetTickCount",
                                                  &TickCountWithTopBit);
  const ImportPatch<decltype(QueryPerformanceCounter)> counter(
      nullptr, "QueryPerformanceCounter", &FixedCounter);
  const auto logger = Make(0);
  logger->Error(L"text");
  ASSERT_EQ(g_reports.size(), 1u);
  EXPECT_EQ(g_reports[0].source, kSource);
  EXPECT_THAT(g_reports[0].data,
              ElementsAre(4, 0x80000001, 0x123456789ABC, 0x80000000,
                          ::GetCurrentThreadId(), ::GetCurrentProcessId(), 0));
}

TEST_F(EventLogSinkTest, FiltersAllButErrorsAndWarnings) {
  const auto logger = Make(0);
  const tk::LogSink sink = kova::MakeEventLogSink(logger.get());
  sink(logger.get(), LogChannel::Info, L"a");
  sink(logger.get(), static_cast<LogChannel>(0xC0000000), L"b");
  EXPECT_THAT(g_reports, IsEmpty());
  sink(logger.get(), LogChannel::Error, L"c");
  sink(logger.get(), LogChannel::Warning, L"d");
  SetLogMask(0x20000000, m_name.c_str());
  m_clock.Advance(5001);
  sink(logger.get(), LogChannel::Info, L"e");
  ASSERT_EQ(g_reports.size(), 3u);
  EXPECT_EQ(g_reports[2].line, L"e");
}

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
    {0xA0000001, L" text"},
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

TEST_F(EventLogSinkTest, FilesEveryChannelInEveryKindOfLog) {
  constexpr uint32_t kKinds[] = {0, 1, 2, 0xFFFFFFFF};
  for (const uint32_t kind : kKinds) {
    const auto logger = Make(0xF000FFFF, kind);
    for (const ChannelRow& row : kChannels) {
      g_reports.clear();
      logger->Log(static_cast<LogChannel>(row.channel), L"text");
      ASSERT_EQ(g_reports.size(), 1u);
      const Report& report = g_reports[0];
      const size_t rank = RankOf(row.channel);
      EXPECT_EQ(report.type, kTypes[rank]);
      EXPECT_EQ(report.category, 0);
      EXPECT_EQ(report.id, kIds[std::min<uint32_t>(kind, 2)][rank]);
      EXPECT_EQ(report.data[3], row.channel);
      EXPECT_EQ(report.line, row.line);
    }
    Clean();
  }
}

TEST(EventLogSourceTest, IsNeverGivenBack) {
  EXPECT_EQ(kova::test::FindImportSlot(nullptr, "DeregisterEventSource"),
            nullptr);
}

}  // namespace
