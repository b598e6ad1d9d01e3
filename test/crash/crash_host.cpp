// A host that crashes, for crash_test.cpp:
//
//   crash_host server SCENARIO PORT LINES   with the server in between, which
//                                           listens on PORT; what it writes to
//                                           the debugger goes to the file LINES
//   crash_host plain SCENARIO               the same without the server
//
// The lines lie in the file as UTF-16, each with a zero after it, and are
// there as soon as they were written, since the host does not live to say more.
#include <process.h>

#include <cstdlib>
#include <cstring>
#include <list>
#include <optional>
#include <string>

#include "base/handles.h"
#include "crash/dump.h"
#include "kova/server.h"
#include "test/crash/faults.h"
#include "test/support/exported_function.h"
#include "test/support/fake_tick_count.h"
#include "test/support/import_patch.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"
#include "test/support/test_extension.h"

namespace {

using kova::test::FindFault;
using kova::test::ImportPatch;
using kova::test::TestClient;
using kova::test::WriteToNull;

constexpr int kStillAlive = 99;
constexpr int kMisused = 98;
constexpr int kWentOn = 97;
constexpr DWORD kPatienceMs = 120000;
constexpr uint64_t kLongUpMs = 100000000;

HANDLE MakeEvent() { return ::CreateEventW(nullptr, TRUE, FALSE, nullptr); }

// The library, run as a host runs it. Nothing of it is ever given back: the
// process ends by a crash.
class Host {
 public:
  explicit Host(const char* port)
      : m_port(static_cast<uint16_t>(std::strtoul(port, nullptr, 10))),
        m_module(::LoadLibraryW(kova::test::ServerLibraryPath().c_str())) {}

  [[nodiscard]] HMODULE Module() const { return m_module; }
  void Start() const {
    kova::test::ExportedFunction<KOVA_StartServer>(m_module,
                                                   "StartKOVAServer")();
  }
  void Stop() const {
    kova::test::ExportedFunction<KOVA_StopServer>(m_module, "StopKOVAServer")();
  }

  // Sends a request to the extension behind `printer`; the connection stays.
  void Request(const std::string& printer, const std::string& actions) const {
    static std::list<TestClient> clients;
    clients.emplace_back(m_port).Send("GET /?printer=" + printer +
                                      "&act=" + actions + " HTTP/1.1\r\n\r\n");
  }

  void StartAndAsk(const std::string& actions) const {
    Start();
    Request("KovaCrash", actions);
  }

  // From now on, calls of the library to its import go to `replacement`.
  template <typename Function>
  static ImportPatch<Function>& Replace(HMODULE module, const char* name,
                                        Function* replacement) {
    static std::list<ImportPatch<Function>> patches;
    return patches.emplace_back(module, name, replacement);
  }

 private:
  const uint16_t m_port;
  const HMODULE m_module;
};

// Set when a second thread was told that another one is writing a dump.
HANDLE g_refused = nullptr;
HANDLE g_lines = INVALID_HANDLE_VALUE;

void WINAPI KeepLine(LPCWSTR line) {
  const DWORD sizeBytes =
      static_cast<DWORD>((std::wcslen(line) + 1) * sizeof(wchar_t));
  DWORD written = 0;
  ::WriteFile(g_lines, line, sizeBytes, &written, nullptr);
  if (g_refused != nullptr && std::wcsstr(line, L"Another thread")) {
    ::SetEvent(g_refused);
  }
}

// Stands in for an import of the library, whatever its type.
template <typename Result, typename... Arguments>
Result CrashInstead(Arguments...) {
  WriteToNull();
  return {};
}

BOOL WINAPI CrashInReport(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD,
                          LPCWSTR*, LPVOID) {
  static bool hasCrashed = false;
  if (!std::exchange(hasCrashed, true)) WriteToNull();
  return TRUE;
}

// A start gives up after 30 s, in which a busy machine has not written a dump.
DWORD WINAPI WaitForDump(HANDLE handle, DWORD timeoutMs) {
  return ::WaitForSingleObject(handle,
                               timeoutMs == 30000 ? kPatienceMs : timeoutMs);
}

// --- Two threads at once ---

// Both threads come by before the process may end, so that the second one does
// not cut the first one's dump short.
LONG WINAPI AwaitBoth(EXCEPTION_POINTERS*) {
  static const HANDLE both = MakeEvent();
  static std::atomic<int> arrived{0};
  if (++arrived == 2) ::SetEvent(both);
  ::WaitForSingleObject(both, kPatienceMs);
  return EXCEPTION_EXECUTE_HANDLER;
}

HANDLE g_dumping = nullptr;
std::optional<decltype(&MiniDumpWriteDump)> g_writeDump;

BOOL WINAPI WriteDumpOnceRefused(HANDLE process, DWORD processId, HANDLE file,
                                 MINIDUMP_TYPE contents,
                                 PMINIDUMP_EXCEPTION_INFORMATION exception,
                                 PMINIDUMP_USER_STREAM_INFORMATION streams,
                                 PMINIDUMP_CALLBACK_INFORMATION callback) {
  ::SetEvent(g_dumping);
  ::WaitForSingleObject(g_refused, kPatienceMs);
  return (*g_writeDump)(process, processId, file, contents, exception, streams,
                        callback);
}

// The second thread crashes while the first one writes its dump.
void CrashWhileDumping(const Host& host) {
  ::SetUnhandledExceptionFilter(&AwaitBoth);
  g_dumping = MakeEvent();
  g_refused = MakeEvent();
  g_writeDump =
      Host::Replace(host.Module(), "MiniDumpWriteDump", &WriteDumpOnceRefused)
          .Original();
  host.StartAndAsk("crash-null");
  ::WaitForSingleObject(g_dumping, kPatienceMs);
  host.Request("KovaCrash", "crash-null");
}

// Both threads are let go into the crash by one event.
void CrashTogether(const Host& host) {
  kova::test::TestExtension extension(L"scripted");
  kova::test::ExtensionGate gate(extension);
  host.Start();
  host.Request("KovaCrash", "wait,crash-null");
  (void)gate.WaitForArrival();
  host.Request("KovaCrash", "wait,crash-null");
  (void)gate.WaitForArrival();
  gate.Open();
  ::Sleep(kPatienceMs);
}

// --- Faults in code of the library and of the sample extension ---

ImportPatch<int*()>* g_errno = nullptr;

int* GiveNoErrno() {
  static std::atomic<bool> hasFailed{false};
  return hasFailed.exchange(true) ? g_errno->Original()() : nullptr;
}

// The library writes through the pointer on its way to the accept thread.
void CrashInLibrary(const Host& host) {
  g_errno = &Host::Replace(host.Module(), "_errno", &GiveNoErrno);
  host.Start();
}

BOOL WINAPI GiveBadNames(HANDLE, DWORD, LPBYTE info, DWORD sizeBytes,
                         LPDWORD neededBytes) {
  *neededBytes = sizeof(PRINTER_INFO_2W);
  if (sizeBytes < *neededBytes) return FALSE;
  auto* const printer = reinterpret_cast<PRINTER_INFO_2W*>(info);
  *printer = {};
  printer->pShareName = reinterpret_cast<wchar_t*>(uintptr_t{16});
  return TRUE;
}

void CrashInSample(const Host& host) {
  const HMODULE sample =
      ::LoadLibraryW((kova::test::TestProgramFolder() +
                      L"\\..\\bin\\sample-extension\\" KOVA_EXTENSION_FILE_NAME)
                         .c_str());
  Host::Replace(sample, "GetPrinterW", &GiveBadNames);
  host.Start();
  host.Request("KovaCrashSample", "page");
}

// --- A host that goes on after a crash ---

DWORD WINAPI StartOnAThread(void* host) {
  static_cast<const Host*>(host)->Start();
  return 0;
}

// No object with a destructor may live in this function.
bool HasCrashedInStart(const Host& host) {
  bool crashed = false;
  __try {
    host.Start();
  } __except (crashed = true, EXCEPTION_EXECUTE_HANDLER) {
  }
  return crashed;
}

// The first line of a start crashes in the event log's client. The host handles
// that and starts the server on another thread.
void HandleAndStartAgain(const Host& host) {
  Host::Replace(host.Module(), "ReportEventW", &CrashInReport);
  const bool crashed = HasCrashedInStart(host);
  const HANDLE thread = ::CreateThread(nullptr, 0, &StartOnAThread,
                                       const_cast<Host*>(&host), 0, nullptr);
  const bool started =
      ::WaitForSingleObject(thread, kPatienceMs) == WAIT_OBJECT_0;
  ::TerminateProcess(::GetCurrentProcess(),
                     crashed && started ? kWentOn : kMisused);
}

void GoOn(kova::test::Fault*) {
  ::TerminateProcess(::GetCurrentProcess(), kWentOn);
}

// --- The scenarios, and the same without the server ---

void CrashHere(kova::test::Fault* fault) { fault(); }

// Wine ends a thread whose stack overflows without a guarantee, and no more
// than that thread; Windows ends the process with the same code either way.
unsigned __stdcall CrashInThread(void* fault) {
  ULONG guaranteeBytes = 64 * 1024;
  ::SetThreadStackGuarantee(&guaranteeBytes);
  reinterpret_cast<kova::test::Fault*>(fault)();
  return 0;
}

void CrashOnAThread(kova::test::Fault* fault) {
  (void)::_beginthreadex(nullptr, 0, &CrashInThread,
                         reinterpret_cast<void*>(fault), 0, nullptr);
}

void CrashOnTwoThreads(kova::test::Fault* fault) {
  ::SetUnhandledExceptionFilter(&AwaitBoth);
  CrashOnAThread(fault);
  CrashOnAThread(fault);
}

// `with` the server, and `without` it the fault that it comes to.
struct Scenario {
  const char* name;
  void (*with)(const Host& host);
  void (*without)(kova::test::Fault* fault);
  const char* fault;
};
constexpr Scenario kScenarios[] = {
    // The five guarded regions.
    {"start",
     [](const Host& host) {
       Host::Replace<decltype(::GetComputerNameW)>(
           host.Module(), "GetComputerNameW", &CrashInstead);
       host.Start();
     },
     &CrashHere, "null"},
    {"stop",
     [](const Host& host) {
       host.Start();
       Host::Replace<decltype(::WSASetEvent)>(host.Module(), "WSASetEvent",
                                              &CrashInstead);
       host.Stop();
     },
     &CrashHere, "null"},
    {"restart",
     [](const Host& host) {
       Host::Replace<decltype(::WaitForMultipleObjects)>(
           host.Module(), "WaitForMultipleObjects", &CrashInstead);
       host.Start();
     },
     &CrashOnAThread, "null"},
    {"accept",
     [](const Host& host) {
       Host::Replace<decltype(::listen)>(host.Module(), "listen",
                                         &CrashInstead);
       Host::Replace(host.Module(), "WaitForSingleObject", &WaitForDump);
       host.Start();
     },
     &CrashOnAThread, "null"},
    {"connection",
     [](const Host& host) {
       Host::Replace<decltype(::WSARecv)>(host.Module(), "WSARecv",
                                          &CrashInstead);
       host.StartAndAsk("keep");
     },
     &CrashOnAThread, "null"},
    // An extension.
    {"null", [](const Host& host) { host.StartAndAsk("crash-null"); },
     &CrashOnAThread, "null"},
    {"throw", [](const Host& host) { host.StartAndAsk("crash-throw"); },
     &CrashOnAThread, "throw"},
    {"divide", [](const Host& host) { host.StartAndAsk("crash-divide"); },
     &CrashOnAThread, "divide"},
    {"overflow", [](const Host& host) { host.StartAndAsk("crash-overflow"); },
     &CrashOnAThread, "overflow"},
    // A line that the event log's client crashes on, before the crash is
    // logged.
    {"sink",
     [](const Host& host) {
       Host::Replace(host.Module(), "ReportEventW", &CrashInReport);
       host.Start();
     },
     &CrashHere, "null"},
    {"while-dumping", &CrashWhileDumping, &CrashOnTwoThreads, "null"},
    {"together", &CrashTogether, &CrashOnAThread, "null"},
    {"library", &CrashInLibrary, &CrashHere, "null"},
    {"sample", &CrashInSample, &CrashOnAThread, "null"},
    {"handled", &HandleAndStartAgain, &GoOn, "null"}};

const Scenario* FindScenario(const char* name) {
  for (const Scenario& scenario : kScenarios) {
    if (std::strcmp(scenario.name, name) == 0) return &scenario;
  }
  return nullptr;
}

void CrashWithServer(const Scenario& scenario, const char* port,
                     const char* lines) {
  g_lines = ::CreateFileA(lines, GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                          CREATE_ALWAYS, 0, nullptr);
  const Host host(port);
  Host::Replace(host.Module(), "OutputDebugStringW", &KeepLine);
  const kova::test::FakeTickCount clock(kLongUpMs, host.Module());
  scenario.with(host);
  ::Sleep(kPatienceMs);
}

}  // namespace

int main(int count, char** arguments) {
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  const Scenario* const scenario =
      count >= 3 ? FindScenario(arguments[2]) : nullptr;
  if (scenario == nullptr) return kMisused;
  if (std::strcmp(arguments[1], "plain") == 0) {
    scenario->without(FindFault(scenario->fault));
    ::Sleep(kPatienceMs);
  } else if (count == 5) {
    CrashWithServer(*scenario, arguments[3], arguments[4]);
  }
  return kStillAlive;
}
