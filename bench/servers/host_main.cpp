// The product as a contestant: bench_host loads it as a host would.
#include <CLI/CLI.hpp>

#include "bench/servers/host_server.h"

namespace {

class HostProgram : public kova::bench::Program {
 public:
  void Describe(CLI::App& app) override {
    app.name("bench_host");
    app.description("Runs KOVAServer.dll with printers for the bench.");
    app.add_option("--port", m_port, "Port to listen on; 0: any");
    app.add_option("--extensions", m_extensions,
                   "Printers Bench1, Bench2..., each with its own extension")
        ->check(CLI::Range(1, 1000));
  }

  std::unique_ptr<kova::bench::Server> MakeServer() override {
    return std::make_unique<kova::bench::HostServer>(m_port, m_extensions);
  }

 private:
  uint16_t m_port = 0;
  size_t m_extensions = 1;
};

}  // namespace

int main(int count, char** arguments) {
  HostProgram program;
  return kova::bench::RunProgram(program, count, arguments);
}
