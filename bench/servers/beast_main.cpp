// A server built on Boost.Beast as a program.
#include <CLI/CLI.hpp>

#include "bench/servers/beast_async.h"
#include "bench/servers/beast_threads.h"

namespace {

using kova::bench::AnswerKind;

class BeastProgram : public kova::bench::Program {
 public:
  void Describe(CLI::App& app) override {
    app.name("bench_beast");
    app.description("An HTTP server built on Boost.Beast.");
    app.add_option("--port", m_port, "Port to listen on; 0: any");
    app.add_option("--mode", m_mode,
                   "thread: blocking, a thread per connection; async")
        ->check(CLI::IsMember({"thread", "async"}));
    app.add_option("--answer", m_kind,
                   "refusal, small (1 KiB) or large (8 MiB)")
        ->transform(CLI::CheckedTransformer(kova::bench::AnswerKindNames()));
  }

  std::unique_ptr<kova::bench::Server> MakeServer() override {
    if (m_mode == "async") {
      return std::make_unique<kova::bench::BeastAsyncServer>(m_port, m_kind);
    }
    return std::make_unique<kova::bench::BeastThreadServer>(m_port, m_kind);
  }

 private:
  uint16_t m_port = 0;
  std::string m_mode = "thread";
  AnswerKind m_kind = AnswerKind::kRefusal;
};

}  // namespace

int main(int count, char** arguments) {
  BeastProgram program;
  return kova::bench::RunProgram(program, count, arguments);
}
