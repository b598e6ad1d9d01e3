// The product, loaded and run as a host does.
#pragma once

#include <memory>
#include <vector>

#include "base/handles.h"
#include "bench/servers/bench_printer.h"
#include "bench/servers/command_loop.h"
#include "kova/server.h"
#include "net/winsock_session.h"
#include "test/support/import_patch.h"

namespace kova::bench {

// Loads ../bin/KOVAServer.dll, seen from this program, and makes the printers
// of the bench extension. The settings that the server needs are in the
// registry only while it reads them; what was there before comes back then.
class HostServer : public Server {
 public:
  // `port` 0: any that is free. `extensions`: how many printers there are,
  // each with its own copy of the extension.
  HostServer(uint16_t port, size_t extensions);

  std::string Start() override;
  uint16_t Port() const override { return m_port; }
  size_t Stop() override;

 private:
  using Patch = test::ImportPatch<decltype(::TerminateThread)>;

  [[nodiscard]] std::string LoadServer();
  [[nodiscard]] std::string MakePrinters();
  [[nodiscard]] bool AnswersProbe() const;
  void RunServer();

  uint16_t m_port;
  const size_t m_extensions;
  WinsockSession m_winsock;
  std::vector<std::unique_ptr<BenchPrinter>> m_printers;
  HMODULE m_module = nullptr;  // stays loaded until the process ends
  KOVA_StartServer* m_start = nullptr;
  KOVA_StopServer* m_stop = nullptr;
  std::unique_ptr<Patch> m_terminations;
};

}  // namespace kova::bench
