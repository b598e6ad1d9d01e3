#include "admin/verb_status.h"

#include <memory>

#include "admin/exchange_options.h"
#include "admin/status_report.h"
#include "common/verb.h"

namespace kova::ctl {
namespace {

constexpr char kExamples[] =
    "Examples:\n"
    "  kovactl status\n"
    "  kovactl status --port 8080 --json\n\n"
    "Exit code 0 if the server answers on its port, 10 if not.";

struct Arguments {
  bool json = false;
  std::optional<uint32_t> port;
  uint32_t seconds = 5;
};

void Run(const Arguments& arguments) {
  StatusFacts facts;
  EndVerb(LookAtServer(arguments.port, arguments.seconds * 1000, facts));
  if (arguments.json) {
    ShowJson(StatusJson(facts));
  } else {
    ShowText(StatusText(facts));
  }
  EndVerb(StatusFailure(facts));
}

}  // namespace

void AddStatusVerb(CLI::App& app) {
  CLI::App* const verb = app.add_subcommand(
      "status", "Show whether the server answers, its settings and traces");
  const auto arguments = std::make_shared<Arguments>();
  AddPortOption(*verb, arguments->port);
  AddTimeoutOption(*verb, arguments->seconds);
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
