#include "bench/servers/host_server.h"

#include <atomic>
#include <filesystem>

#include "kova/extension.h"
#include "test/support/process_counts.h"
#include "test/support/server_fixture.h"
#include "test/support/server_settings_scope.h"
#include "test/support/test_client.h"

namespace kova::bench {
namespace {

constexpr uint64_t kProbeMs = 5000;

std::atomic<size_t> g_terminated{0};

// Counts, and does it: what a stop leaves behind must not spoil the next
// measurement.
BOOL WINAPI CountTermination(HANDLE thread, DWORD exitCode) {
  ++g_terminated;
  return ::TerminateThread(thread, exitCode);
}

template <typename Function>
Function* Find(HMODULE module, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// One that another process has loaded cannot be replaced, and need not be.
bool CopyExtension(size_t number) {
  namespace fs = std::filesystem;
  const fs::path from = fs::path(test::TestProgramFolder()) / "extension";
  const fs::path to = ExtensionFolder(number);
  std::error_code error;
  fs::create_directories(to, error);
  fs::copy_file(from / KOVA_EXTENSION_FILE_NAME, to / KOVA_EXTENSION_FILE_NAME,
                fs::copy_options::overwrite_existing, error);
  return fs::exists(to / KOVA_EXTENSION_FILE_NAME, error);
}

}  // namespace

HostServer::HostServer(uint16_t port, size_t extensions)
    : m_port(port), m_extensions(extensions) {}

std::string HostServer::Start() {
  WORD granted = 0;
  if (m_winsock.Open(&granted) != 0) return "Winsock does not start";
  std::string failure = LoadServer();
  if (failure.empty()) failure = MakePrinters();
  if (!failure.empty()) return failure;
  RunServer();
  if (AnswersProbe()) return "";
  m_stop();
  return "the server does not listen on port " + std::to_string(m_port) +
         "; its log says why";
}

std::string HostServer::LoadServer() {
  const std::wstring path =
      test::TestProgramFolder() + L"\\..\\bin\\KOVAServer.dll";
  m_module = ::LoadLibraryW(path.c_str());
  if (m_module == nullptr) return "../bin/KOVAServer.dll does not load";
  m_start = Find<KOVA_StartServer>(m_module, "StartKOVAServer");
  m_stop = Find<KOVA_StopServer>(m_module, "StopKOVAServer");
  if (m_start == nullptr || m_stop == nullptr) {
    return "../bin/KOVAServer.dll lacks its two functions";
  }
  m_terminations =
      std::make_unique<Patch>(m_module, "TerminateThread", &CountTermination);
  return "";
}

std::string HostServer::MakePrinters() {
  for (size_t number = 1; number <= m_extensions; ++number) {
    if (!CopyExtension(number)) {
      return "the bench extension cannot be copied; build bench_servers";
    }
    m_printers.push_back(
        std::make_unique<BenchPrinter>(PrinterName(number), number));
    if (!m_printers.back()->IsReady()) {
      return "the spooler refuses the printer Bench" + std::to_string(number);
    }
  }
  return "";
}

// Returns when the probe's thread has left, too: it would count as one of those
// at rest.
bool HostServer::AnswersProbe() const {
  const size_t before = test::CountThreads();
  if (!test::TestClient(m_port).IsConnected()) return false;
  const uint64_t endMs = ::GetTickCount64() + kProbeMs;
  while (test::CountThreads() > before && ::GetTickCount64() < endMs) {
    ::Sleep(10);
  }
  return true;
}

void HostServer::RunServer() {
  test::ServerSettingsScope settings;
  if (m_port == 0) m_port = test::FreePort();
  settings.SetPort(m_port);
  settings.SetByte(test::kNetworkCommunication, 0);
  m_start();
}

size_t HostServer::Stop() {
  const size_t before = g_terminated;
  m_stop();
  return g_terminated - before;
}

}  // namespace kova::bench
