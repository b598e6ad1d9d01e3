#include "test/failing_calls/scenario.h"

#include <algorithm>

#include "crash/dump.h"
#include "test/extensions/extension_answers.h"
#include "test/support/bad_request.h"
#include "test/support/process_counts.h"
#include "test/support/test_client.h"

namespace kova::test {
namespace {

// A client that waits for something that a failed call has swallowed gives up
// soon; one that waits while nothing has failed yet has all the time.
constexpr wchar_t kEventSourceKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application\\"
    L"DispatcherUtil";
constexpr DWORD kSwallowedMs = 800;
constexpr DWORD kRestartMs = 3000;
// A restart that a failed call has prevented is given up sooner.
constexpr DWORD kPreventedMs = 1200;
constexpr uint64_t kThreadEndMs = 2000;
constexpr uint32_t kLargeBytes = 700000;
// The waits of the library that a test cannot wait out are scaled down.
constexpr DWORD kAnswerMs = 30000;
constexpr DWORD kShortAnswerMs = 300;
constexpr uint32_t kEverything = 0xFFFFFFFF;
constexpr wchar_t kLogFile[] = L"C:\\Log Files\\Corvane KOVA Server.txt";
constexpr wchar_t kRestarting[] =
    L"Info NetworkMonitor::ServerRestart: Restarting KOVA server...";

void WINAPI ShortSleep(DWORD) { ::SleepEx(5, FALSE); }

decltype(&::WaitForSingleObject) g_wait = nullptr;

DWORD WINAPI ShortWait(HANDLE handle, DWORD timeoutMs) {
  return g_wait(handle, timeoutMs == kAnswerMs ? kShortAnswerMs : timeoutMs);
}

FailureScenario::OnDump* g_onDump = nullptr;

BOOL WINAPI TellOfDump(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE,
                       PMINIDUMP_EXCEPTION_INFORMATION,
                       PMINIDUMP_USER_STREAM_INFORMATION,
                       PMINIDUMP_CALLBACK_INFORMATION) {
  g_onDump();
  return TRUE;
}

std::string Request(const std::string& actions) {
  return "GET /?printer=KOVA+failing&act=" + actions + " HTTP/1.1\r\n\r\n";
}

std::string ShareRequest(const std::string& actions) {
  return "GET /?share=kovafailing&act=" + actions + " HTTP/1.1\r\n\r\n";
}

// A thread that has dropped its last reference to the library may still be on
// its way out of the system.
int ThreadsAbove(size_t base) {
  const uint64_t startMs = ::GetTickCount64();
  size_t threads = CountThreads();
  while (threads > base && ::GetTickCount64() - startMs < kThreadEndMs) {
    ::SleepEx(1, FALSE);
    threads = CountThreads();
  }
  return static_cast<int>(threads) - static_cast<int>(base);
}

bool IsTrouble(const std::wstring& line) {
  return line.starts_with(L"Error ") || line.starts_with(L"Warning ");
}

}  // namespace

// One loaded library, from its load to its unloading.
class FailureScenario::Life {
 public:
  // `thunks` is filled, and must live until the library is gone.
  Life(std::unique_ptr<CallThunks>& thunks, const FailingCall& failing)
      : m_thunks(MakeThunks(thunks, m_server.Module(), failing)),
        m_sleep(m_server.Module(), "Sleep", &ShortSleep),
        m_wait(m_server.Module(), "WaitForSingleObject", &ShortWait) {
    g_wait = m_wait.Original();
    if (g_onDump == nullptr) return;
    m_dump.emplace(m_server.Module(), "MiniDumpWriteDump", &TellOfDump);
  }

  void Live(Outcome& outcome) {
    const uint64_t startMs = ::GetTickCount64();
    m_server.Start();
    outcome.refused = Ask("GET / HTTP/1.1\r\n\r\n", BadRequest());
    outcome.routed = Ask(Request("bytes-1000"), Pattern(1000));
    const std::string large = "bytes-" + std::to_string(kLargeBytes);
    outcome.large = Ask(ShareRequest(large), Pattern(kLargeBytes));
    Restart();
    outcome.afterRestart = AskAfterRestart();
    m_server.Stop();
    outcome.elapsedMs = ::GetTickCount64() - startMs;
    outcome.failed = m_thunks.HasFailed();
    outcome.troubles = m_capture.Take();
    std::erase_if(outcome.troubles,
                  [](const std::wstring& line) { return !IsTrouble(line); });
  }

  bool ServesAgain() {
    m_thunks.LetAllSucceed();
    m_server.UsePort(FreePort());
    m_server.Start();
    const Got got = Ask("GET / HTTP/1.1\r\n\r\n", BadRequest());
    m_server.Stop();
    return got == Got::kAnswer;
  }

 private:
  Got Ask(const std::string& request, const std::string& answer) {
    TestClient client(m_server.Port());
    if (!client.IsConnected() || !client.Send(request)) return Got::kNothing;
    std::string got = client.ReceiveAll(kSwallowedMs);
    if (!client.ClosedByPeer() && !m_thunks.HasFailed()) {
      got += client.ReceiveAll();
    }
    return Judge(MaskDate(got), answer, client.ClosedByPeer());
  }

  static Got Judge(const std::string& got, const std::string& answer,
                   bool closed) {
    if (got == answer) return closed ? Got::kAnswer : Got::kSilence;
    if (got == BadRequest()) return Got::kOwn400;
    if (!answer.starts_with(got)) return Got::kOther;
    if (!closed) return Got::kSilence;
    return got.empty() ? Got::kNothing : Got::kCut;
  }

  [[nodiscard]] DWORD PatienceMs() const {
    return m_thunks.HasFailed() ? kPreventedMs : kRestartMs;
  }

  // Has the extension ask for a restart, and waits until the new listener
  // takes connections, or cannot any more.
  void Restart() {
    TestClient client(m_server.Port());
    if (!client.IsConnected() || !client.Send(Request("restart"))) return;
    if (!m_capture.WaitFor(kRestarting, PatienceMs())) return;
    (void)client.ReceiveAll(kSwallowedMs);
    AwaitListener();
  }

  // Asks again where the listener that was about to be closed took the first
  // connection, which then went with it.
  Got AskAfterRestart() {
    const Got got = Ask(Request("bytes-2000"), Pattern(2000));
    if (got != Got::kNothing) return got;
    AwaitListener();
    return Ask(Request("bytes-2000"), Pattern(2000));
  }

  void AwaitListener() {
    const uint64_t startMs = ::GetTickCount64();
    while (!m_server.IsListening() &&
           ::GetTickCount64() - startMs < PatienceMs()) {
      ::SleepEx(1, FALSE);
    }
  }

  static CallThunks& MakeThunks(std::unique_ptr<CallThunks>& thunks,
                                HMODULE module, const FailingCall& failing) {
    thunks = std::make_unique<CallThunks>(module, failing);
    return *thunks;
  }

  ServerFixture m_server;
  CallThunks& m_thunks;
  ImportPatch<decltype(::Sleep)> m_sleep;
  ImportPatch<decltype(::WaitForSingleObject)> m_wait;
  std::optional<ImportPatch<decltype(::MiniDumpWriteDump)>> m_dump;
  LogCapture m_capture{m_server.Module()};
};

FailureScenario::FailureScenario(OnDump* onDump) : m_onDump(onDump) {
  m_printer.SetDriverPackage(m_extension.Folder());
}

bool FailureScenario::IsReady() const {
  return m_extension.IsLoaded() && m_printer.IsInstalled();
}

Outcome FailureScenario::Run(const FailingCall& failing) {
  Outcome outcome;
  g_onDump = m_onDump;
  m_extension.Forget();
  // A failed look-up of the mask makes the server write its default.
  SetLogMask(kEverything);
  // The file is written, and an event source made, only where there is none.
  ::DeleteFileW(kLogFile);
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kEventSourceKey);
  const int responses = m_extension.Record().live;
  const size_t threads = CountThreads();
  const size_t handles = CountHandles();
  std::unique_ptr<CallThunks> thunks;
  {
    Life life(thunks, failing);
    life.Live(outcome);
    m_calls = thunks->Calls();
    outcome.servesAgain = life.ServesAgain();
  }
  outcome.unloaded = ::GetModuleHandleW(L"KOVAServer.dll") == nullptr;
  // A library that stays would go on calling through them.
  if (!outcome.unloaded) (void)thunks.release();
  outcome.threadsLeft = ThreadsAbove(threads);
  outcome.handlesLeft =
      static_cast<int>(CountHandles()) - static_cast<int>(handles);
  outcome.responsesLeft = m_extension.Record().live - responses;
  return outcome;
}

}  // namespace kova::test
