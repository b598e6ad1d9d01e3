// The bare server as a program: what the product's design allows at best.
#include <CLI/CLI.hpp>
#include <map>

#include "bench/servers/answers.h"
#include "bench/servers/bare_server.h"
#include "bench/servers/bench_printer.h"

namespace {

using kova::bench::AnswerKind;
using kova::bench::BarePlan;
using kova::bench::BenchPrinter;
using kova::bench::Growth;

std::map<std::string, Growth> GrowthNames() {
  return {{"reserved", Growth::kReserved}, {"exact", Growth::kExact}};
}

class BareProgram : public kova::bench::Program {
 public:
  void Describe(CLI::App& app) override {
    app.name("bench_bare");
    app.description("One thread per connection and event-select, no more.");
    app.add_option("--port", m_port, "Port to listen on; 0: any");
    app.add_option("--answer", m_kind,
                   "refusal, small (1 KiB) or large (8 MiB)")
        ->transform(CLI::CheckedTransformer(kova::bench::AnswerKindNames()));
    app.add_flag(
        "--copy", m_plan.copy,
        "Copy each answer into a block of its own, as extensions must");
    app.add_flag("--keep-open", m_plan.keepOpen,
                 "Go on receiving after an answer");
    app.add_option("--body", m_plan.bodyBytes,
                   "Answer when so many bytes have come; 0: at each receive");
    app.add_option("--receive", m_plan.growth,
                   "How the block they go to grows: reserved or exact")
        ->transform(CLI::CheckedTransformer(GrowthNames()));
    app.add_option("--lookup", m_printerName,
                   "Ask the spooler for this printer's package each time");
  }

  std::unique_ptr<kova::bench::Server> MakeServer() override {
    m_plan.answer = kova::bench::MakeAnswer(m_kind, m_plan.keepOpen);
    m_plan.printer.assign(m_printerName.begin(), m_printerName.end());
    if (!m_plan.printer.empty() && !kova::bench::HasPackage(m_plan.printer)) {
      m_printer = std::make_unique<BenchPrinter>(m_plan.printer);
    }
    return std::make_unique<kova::bench::BareServer>(m_port, m_plan);
  }

 private:
  uint16_t m_port = 0;
  AnswerKind m_kind = AnswerKind::kRefusal;
  BarePlan m_plan;
  std::string m_printerName;
  // Made where no other contestant has made it.
  std::unique_ptr<BenchPrinter> m_printer;
};

}  // namespace

int main(int count, char** arguments) {
  BareProgram program;
  return kova::bench::RunProgram(program, count, arguments);
}
