// Patched: the lock of a logger's event-log reports, and threads that are gone
// in the middle of one.
#include <gtest/gtest.h>

#include <memory>

#include "base/handles.h"
#include "log/logger.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"

namespace {

using kova::UniqueKernelHandle;
using kova::test::DeleteLogMask;
using kova::test::ImportPatch;

constexpr wchar_t kName[] = L"test event log lock";

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

int g_reports = 0;
BOOL WINAPI CountReport(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCWSTR*,
                        LPVOID) {
  ++g_reports;
  g_heldWhileReporting = g_held;
  return TRUE;
}
HANDLE WINAPI GiveSource(LPCWSTR, LPCWSTR) {
  return reinterpret_cast<HANDLE>(uintptr_t{0x4660});
}

class EventLogLockTest : public testing::Test {
 protected:
  EventLogLockTest() {
    g_reports = 0;
    DeleteLogMask(kName);
  }
  ~EventLogLockTest() override { DeleteLogMask(kName); }

  static std::shared_ptr<tk::Logger> Make() {
    return std::make_shared<tk::Logger>(kName, 0,
                                        std::vector<tk::LogFormatter>(),
                                        std::vector<tk::LogSink>(), 0);
  }

 private:
  const kova::test::LogCapture m_capture;
  const ImportPatch<decltype(RegisterEventSourceW)> m_register{
      nullptr, "RegisterEventSourceW", &GiveSource};
  const ImportPatch<decltype(ReportEventW)> m_report{nullptr, "ReportEventW",
                                                     &CountReport};
};

TEST_F(EventLogLockTest, HoldsTheLoggersLockWhileItReports) {
  const auto logger = Make();
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

TEST_F(EventLogLockTest, AReportMayLogOnItsOwnThread) {
  const auto logger = Make();
  logger->EventLogLock().Hold([&] { logger->Error(L"text"); });
  EXPECT_EQ(g_reports, 1);
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

TEST_F(EventLogLockTest, ACrashInAReportThatTheHostHandlesKeepsNobodyOut) {
  const auto logger = Make();
  {
    const ImportPatch<decltype(ReportEventW)> crash(nullptr, "ReportEventW",
                                                    &CrashInReport);
    EXPECT_EQ(CodeOfCrash(*logger), kCrash);
  }
  const Reporter other(*logger);
  ASSERT_TRUE(other.HasEnded());
  EXPECT_EQ(g_reports, 1);
}

HANDLE g_reporting = nullptr;
BOOL WINAPI ReportForEver(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD,
                          LPCWSTR*, LPVOID) {
  ::SetEvent(g_reporting);
  ::Sleep(INFINITE);
  return FALSE;
}

TEST_F(EventLogLockTest, AThreadThatIsKilledInAReportKeepsNobodyOut) {
  const auto logger = Make();
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
  EXPECT_EQ(g_reports, 1);
}

}  // namespace
