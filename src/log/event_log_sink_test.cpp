// Patched: reports to the event log, which are recorded instead of filed, and
// event sources in the real registry.
#include "log/sinks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "base/handles.h"
#include "log/event_source.h"
#include "test/support/fake_tick_count.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"

namespace {

using kova::ClassifyEvent;
using kova::EventClass;
using kova::UniqueKernelHandle;
using kova::UniqueRegistryKey;
using kova::test::DeleteLogMask;
using kova::test::FakeTickCount;
using kova::test::ImportPatch;
using kova::test::LogCapture;
using kova::test::SetLogMask;
using testing::ElementsAre;
using testing::IsEmpty;
using tk::LogChannel;

const std::wstring kEventlog =
    L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\";

struct ClassRow {
  uint32_t channel;
  WORD type;
  std::array<DWORD, 3> ids;
};
constexpr ClassRow kClasses[] = {
    {0x80000000, 1, {0xCFFF0300, 0xC0FF0600, 0x4FFF0100}},
    {0xC0000000, 1, {0xCFFF0300, 0xC0FF0600, 0x4FFF0100}},
    {0xA0000001, 1, {0xCFFF0300, 0xC0FF0600, 0x4FFF0100}},
    {0x40000000, 2, {0x8FFF0200, 0x80FF0500, 0x4FFF0100}},
    {0x60000000, 2, {0x8FFF0200, 0x80FF0500, 0x4FFF0100}},
    {0x20000000, 4, {0x4FFF0100, 0x40FF0400, 0x4FFF0100}},
    {0x10000000, 4, {0x4FFF0100, 0x40FF0400, 0x4FFF0100}},
    {0x00000001, 4, {0x4FFF0100, 0x40FF0400, 0x4FFF0100}},
    {0x00008000, 4, {0x4FFF0100, 0x40FF0400, 0x4FFF0100}},
    {0x00000000, 4, {0x4FFF0100, 0x40FF0400, 0x4FFF0100}},
};

TEST(ClassifyEventTest, TestsBitsAndTheKindOfLog) {
  for (const ClassRow& row : kClasses) {
    for (uint32_t kind = 0; kind < 3; ++kind) {
      const EventClass expected{row.type, row.ids[kind]};
      EXPECT_EQ(ClassifyEvent(kind, static_cast<LogChannel>(row.channel)),
                expected)
          << std::hex << row.channel << " kind " << kind;
    }
  }
  EXPECT_EQ(ClassifyEvent(0xFFFFFFFF, LogChannel::Error).id, 0x4FFF0100u);
}

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
// How many mutexes the thread that reports holds.
int g_held = 0;
int g_heldWhileReporting = 0;

decltype(&WaitForSingleObjectEx) g_wait = nullptr;
decltype(&ReleaseMutex) g_release = nullptr;

DWORD WINAPI CountWait(HANDLE mutex, DWORD timeoutMs, BOOL alertable) {
  EXPECT_EQ(timeoutMs, INFINITE);
  ++g_held;
  return g_wait(mutex, timeoutMs, alertable);
}

BOOL WINAPI CountRelease(HANDLE mutex) {
  --g_held;
  return g_release(mutex);
}

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
  g_heldWhileReporting = g_held;
  return FALSE;
}

LSTATUS WINAPI FailToCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                               SECURITY_ATTRIBUTES*, HKEY*, DWORD*) {
  ::SetLastError(0xABC);
  return ERROR_ACCESS_DENIED;
}

std::wstring TextOf(const std::wstring& key, const wchar_t* name) {
  wchar_t text[MAX_PATH] = {};
  DWORD sizeBytes = sizeof(text);
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ,
                     nullptr, text, &sizeBytes) != ERROR_SUCCESS) {
    return L"<none>";
  }
  EXPECT_EQ(sizeBytes, 2 * std::wcslen(text) + 2);
  return text;
}

DWORD NumberOf(const std::wstring& key, const wchar_t* name) {
  DWORD number = 0xDEADBEEF;
  DWORD sizeBytes = sizeof(number);
  ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_DWORD,
                 nullptr, &number, &sizeBytes);
  return number;
}

bool KeyExists(const std::wstring& path) {
  UniqueRegistryKey key;
  return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ,
                         key.Receive()) == ERROR_SUCCESS;
}

void MakeKey(const std::wstring& path) {
  UniqueRegistryKey key;
  EXPECT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0,
                              KEY_WRITE, nullptr, key.Receive(), nullptr),
            ERROR_SUCCESS);
}

void ExpectSourceValues(const std::wstring& key) {
  const std::wstring messages =
      L"C:\\windows\\system32\\Corvane_EventMessages.dll";
  EXPECT_EQ(TextOf(key, L"EventMessageFile"), messages);
  EXPECT_EQ(TextOf(key, L"CategoryMessageFile"), messages);
  EXPECT_EQ(NumberOf(key, L"TypesSupported"), 7u);
  EXPECT_EQ(NumberOf(key, L"CategoryCount"), 2u);
}

class EventSourceFixture : public testing::Test {
 protected:
  EventSourceFixture() { Clean(); }
  ~EventSourceFixture() override { Clean(); }

  void Clean() {
    for (const std::wstring& name : {m_name, m_other}) {
      ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, Application(name).c_str());
      ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, System(name).c_str());
      DeleteLogMask(name.c_str());
    }
  }
  static std::wstring Application(const std::wstring& name) {
    return kEventlog + L"Application\\" + name;
  }
  static std::wstring System(const std::wstring& name) {
    return kEventlog + L"System\\" + name;
  }

  const std::wstring m_name = L"test event source";
  const std::wstring m_other = L"test other event source";
  LogCapture m_capture;
};

class EventLogSinkTest : public EventSourceFixture {
 protected:
  EventLogSinkTest()
      : m_register(nullptr, "RegisterEventSourceW", &RecordSource),
        m_report(nullptr, "ReportEventW", &RecordReport) {
    g_source = kSource;
    g_registered.clear();
    g_reports.clear();
  }
  std::shared_ptr<tk::Logger> Make(uint32_t mask, uint32_t kind = 0) {
    return std::make_shared<tk::Logger>(m_name, mask,
                                        std::vector<tk::LogFormatter>(),
                                        std::vector<tk::LogSink>(), kind);
  }
  FakeTickCount m_clock;
  const ImportPatch<decltype(RegisterEventSourceW)> m_register;
  const ImportPatch<decltype(ReportEventW)> m_report;
};

TEST_F(EventLogSinkTest, DescribesANewSource) {
  (void)Make(0);
  ExpectSourceValues(Application(m_name));
  EXPECT_FALSE(KeyExists(System(m_name)));
  EXPECT_THAT(g_registered, ElementsAre(m_name));
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

TEST_F(EventLogSinkTest, LeavesAnExistingSourceAlone) {
  MakeKey(Application(m_name));
  (void)Make(0);
  EXPECT_EQ(TextOf(Application(m_name), L"EventMessageFile"), L"<none>");
  EXPECT_THAT(g_registered, ElementsAre(m_name));
}

TEST_F(EventLogSinkTest, ALoggerOfTheSystemKindReportsThere) {
  const auto logger = Make(0, 1);
  ExpectSourceValues(System(m_name));
  EXPECT_FALSE(KeyExists(Application(m_name)));
  logger->Error(L"text");
  ASSERT_EQ(g_reports.size(), 1u);
  EXPECT_EQ(g_reports[0].id, 0xC0FF0600u);
}

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
  EXPECT_FALSE(KeyExists(Application(m_name)));
}

TEST_F(EventLogSinkTest, WithoutASourceNothingIsReported) {
  g_source = nullptr;
  const auto logger = Make(0xFFFFFFFF);
  logger->Error(L"text");
  EXPECT_THAT(g_reports, IsEmpty());
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Error text"));
}

TEST_F(EventLogSinkTest, ReportsTheLineAndWhereItCameFrom) {
  const auto logger = Make(0x20000000);
  logger->Log(LogChannel::Info, L"text");
  ASSERT_EQ(g_reports.size(), 1u);
  const Report& report = g_reports[0];
  EXPECT_EQ(report.source, kSource);
  EXPECT_EQ(report.type, EVENTLOG_INFORMATION_TYPE);
  EXPECT_EQ(report.category, 0);
  EXPECT_EQ(report.id, 0x4FFF0100u);
  EXPECT_EQ(report.line, L"Info text");
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

TEST_F(EventLogSinkTest, HoldsTheLoggersLockWhileItReports) {
  const auto logger = Make(0);
  const ImportPatch<decltype(WaitForSingleObjectEx)> wait(
      nullptr, "WaitForSingleObjectEx", &CountWait);
  g_wait = wait.Original();
  const ImportPatch<decltype(ReleaseMutex)> release(nullptr, "ReleaseMutex",
                                                    &CountRelease);
  g_release = release.Original();
  logger->Error(L"text");
  EXPECT_EQ(g_heldWhileReporting, 1);
  EXPECT_EQ(g_held, 0);
}

TEST_F(EventLogSinkTest, AReportMayLogOnItsOwnThread) {
  const auto logger = Make(0);
  logger->EventLogLock().Hold([&] { logger->Error(L"text"); });
  EXPECT_EQ(g_reports.size(), 1u);
}

// A thread that logs one error. Its end is waited for.
class Reporter {
 public:
  explicit Reporter(tk::Logger& logger)
      : m_thread(::CreateThread(nullptr, 0, &Report, &logger, 0, nullptr)) {}

  [[nodiscard]] bool HasEnded() const {
    return ::WaitForSingleObject(m_thread.Get(), 10000) == WAIT_OBJECT_0;
  }
  void Kill() const { ::TerminateThread(m_thread.Get(), 0); }

 private:
  static DWORD WINAPI Report(void* logger) {
    static_cast<tk::Logger*>(logger)->Error(L"text");
    return 0;
  }
  const UniqueKernelHandle m_thread;
};

constexpr DWORD kCrash = 0xE0004660;
BOOL WINAPI CrashInReport(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD,
                          LPCWSTR*, LPVOID) {
  ::RaiseException(kCrash, 0, 0, nullptr);
  return FALSE;
}

__declspec(noinline) void LogOneError(tk::Logger& logger) {
  logger.Error(L"text");
}

// Handles a crash as a host may. No object with a destructor may live in this
// function.
DWORD CodeOfCrash(tk::Logger& logger) {
  DWORD code = 0;
  __try {
    LogOneError(logger);
  } __except (code = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER) {
  }
  return code;
}

TEST_F(EventLogSinkTest, ACrashInAReportThatTheHostHandlesKeepsNobodyOut) {
  const auto logger = Make(0);
  {
    const ImportPatch<decltype(ReportEventW)> crash(nullptr, "ReportEventW",
                                                    &CrashInReport);
    EXPECT_EQ(CodeOfCrash(*logger), kCrash);
  }
  const Reporter other(*logger);
  ASSERT_TRUE(other.HasEnded());
  EXPECT_EQ(g_reports.size(), 1u);
}

HANDLE g_reporting = nullptr;
BOOL WINAPI ReportForEver(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD,
                          LPCWSTR*, LPVOID) {
  ::SetEvent(g_reporting);
  ::Sleep(INFINITE);
  return FALSE;
}

TEST_F(EventLogSinkTest, AThreadThatIsKilledInAReportKeepsNobodyOut) {
  const auto logger = Make(0);
  const UniqueKernelHandle reporting(
      ::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  g_reporting = reporting.Get();
  {
    const ImportPatch<decltype(ReportEventW)> stay(nullptr, "ReportEventW",
                                                   &ReportForEver);
    const Reporter stuck(*logger);
    ASSERT_EQ(::WaitForSingleObject(g_reporting, 10000), WAIT_OBJECT_0);
    stuck.Kill();
    ASSERT_TRUE(stuck.HasEnded());
  }
  const Reporter other(*logger);
  ASSERT_TRUE(other.HasEnded());
  EXPECT_EQ(g_reports.size(), 1u);
}

using PrepareEventSourceTest = EventSourceFixture;

TEST_F(PrepareEventSourceTest, DescribesANewSourceAndRemovesASystemSource) {
  MakeKey(System(m_name));
  ::SetLastError(4660);
  EXPECT_TRUE(tk::PrepareEventSource(m_name.c_str()));
  EXPECT_EQ(::GetLastError(), 4660u);
  ExpectSourceValues(Application(m_name));
  EXPECT_FALSE(KeyExists(System(m_name)));
}

TEST_F(PrepareEventSourceTest, LeavesAnExistingSourceAndASystemSourceAlone) {
  MakeKey(Application(m_name));
  MakeKey(System(m_name));
  EXPECT_TRUE(tk::PrepareEventSource(m_name.c_str()));
  EXPECT_EQ(TextOf(Application(m_name), L"EventMessageFile"), L"<none>");
  EXPECT_TRUE(KeyExists(System(m_name)));
}

TEST_F(PrepareEventSourceTest, FailsWithoutAKeyOrAName) {
  EXPECT_FALSE(tk::PrepareEventSource(nullptr));
  const ImportPatch<decltype(RegCreateKeyExW)> patch(nullptr, "RegCreateKeyExW",
                                                     &FailToCreateKey);
  EXPECT_FALSE(tk::PrepareEventSource(m_name.c_str()));
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

using PopulateEventSourceRegKeysTest = EventSourceFixture;

TEST_F(PopulateEventSourceRegKeysTest, PreparesASourceForEveryMask) {
  SetLogMask(1, m_name.c_str());
  SetLogMask(2, m_other.c_str());
  tk::Logger::PopulateEventSourceRegKeys();
  ExpectSourceValues(Application(m_name));
  ExpectSourceValues(Application(m_other));
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

std::vector<REGSAM> g_asked;
bool g_refuseReading = false;
decltype(RegOpenKeyExW)* g_openKey = nullptr;

LSTATUS WINAPI RefuseToOpenForWriting(HKEY root, LPCWSTR path, DWORD options,
                                      REGSAM access, HKEY* key) {
  EXPECT_STREQ(path, L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks");
  g_asked.push_back(access);
  if (g_refuseReading || (access & KEY_SET_VALUE) != 0) {
    return ERROR_ACCESS_DENIED;
  }
  return g_openKey(root, path, options, access, key);
}

TEST_F(PopulateEventSourceRegKeysTest, ReadsMasksThatItMayNotWrite) {
  SetLogMask(1, m_name.c_str());
  const ImportPatch<decltype(RegOpenKeyExW)> patch(nullptr, "RegOpenKeyExW",
                                                   &RefuseToOpenForWriting);
  g_openKey = patch.Original();
  g_asked.clear();
  g_refuseReading = false;
  tk::Logger::PopulateEventSourceRegKeys();
  EXPECT_THAT(g_asked, ElementsAre(0x2001Fu, 0x20019u));
  EXPECT_EQ(NumberOf(Application(m_name), L"TypesSupported"), 7u);
}

TEST_F(PopulateEventSourceRegKeysTest, SaysSoWhereTheMasksCannotBeRead) {
  const ImportPatch<decltype(RegOpenKeyExW)> patch(nullptr, "RegOpenKeyExW",
                                                   &RefuseToOpenForWriting);
  g_refuseReading = true;
  tk::Logger::PopulateEventSourceRegKeys();
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(L"Logger::PopulateEventSourceRegKeys  Cannot open registry "
                  L"key  HKEY_LOCAL_MACHINE:SOFTWARE\\Corvane Tessaly\\Drivers"
                  L"\\DebugLogMasks\n"));
}

}  // namespace
