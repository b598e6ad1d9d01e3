// The product as a contestant: bench_host loads and runs it as a host would,
// with printers of the bench extension.
#include <CLI/CLI.hpp>
#include <atomic>
#include <filesystem>
#include <stdexcept>

#include "bench/servers/bench_printer.h"
#include "bench/servers/server_program.h"
#include "kova/extension.h"
#include "test/support/import_patch.h"
#include "test/support/process_counts.h"

namespace kova::bench {
namespace {

constexpr DWORD kProbeMs = 5000;

std::atomic<size_t> g_terminated{0};

// Counts, and does it: what a stop leaves behind must not spoil the next
// measurement.
BOOL WINAPI CountTermination(HANDLE thread, DWORD exitCode) {
  ++g_terminated;
  return ::TerminateThread(thread, exitCode);
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

UniqueModule LoadFirst(Cost& spent) {
  const Meter meter;
  UniqueModule library(::LoadLibraryW(test::ServerLibraryPath().c_str()));
  spent.loadMs = meter.Milliseconds();
  spent.heldBytes = meter.Bytes();
  return library;
}

class HostServer : public Server {
 public:
  // `extensions`: how many printers there are, Bench1, Bench2 and so on, each
  // with its own copy of the extension.
  explicit HostServer(size_t extensions) {
    if (!m_server.IsLoaded()) {
      throw std::runtime_error("../bin/KOVAServer.dll does not load");
    }
    m_library.Reset();  // the fixture has it now
    m_terminations.emplace(m_server.Module(), "TerminateThread",
                           &CountTermination);
    for (size_t number = 1; number <= extensions; ++number) MakePrinter(number);
    m_server.Settings().SetByte(test::kNetworkCommunication, 0);
    Start();
    // The probe's thread would count as one of those at rest.
    const size_t atRest = test::CountThreads();
    if (!m_server.IsListening()) {
      throw std::runtime_error("the server does not listen; its log says why");
    }
    (void)test::WaitForThreads(atRest, kProbeMs);
  }

  uint16_t Port() const override { return m_server.Port(); }
  size_t Stop() override {
    m_server.Stop();
    return g_terminated;
  }
  Cost Spent() const override { return m_spent; }

 private:
  void Start() {
    const Meter meter;
    m_server.Start();
    m_spent.startMs = meter.Milliseconds();
    m_spent.heldBytes += meter.Bytes();
  }

  void MakePrinter(size_t number) {
    if (!CopyExtension(number)) {
      throw std::runtime_error("the bench extension cannot be copied");
    }
    const auto name = L"Bench" + std::to_wstring(number);
    m_printers.push_back(std::make_unique<BenchPrinter>(name, number));
    if (!m_printers.back()->IsReady()) {
      throw std::runtime_error("the spooler refuses a printer");
    }
  }

  std::vector<std::unique_ptr<BenchPrinter>> m_printers;
  Cost m_spent;
  UniqueModule m_library = LoadFirst(m_spent);
  test::ServerFixture m_server;
  std::optional<test::ImportPatch<decltype(::TerminateThread)>> m_terminations;
};

}  // namespace
}  // namespace kova::bench

int main(int count, char** arguments) {
  size_t extensions = 1;
  return kova::bench::RunServerProgram(
      count, arguments,
      [&](CLI::App& app) {
        app.name("bench_host");
        app.description("Runs KOVAServer.dll with printers for the bench.");
        app.add_option(
               "--extensions", extensions,
               "Printers Bench1, Bench2..., each with its own extension")
            ->check(CLI::Range(1, 1000));
      },
      [&] { return std::make_unique<kova::bench::HostServer>(extensions); });
}
