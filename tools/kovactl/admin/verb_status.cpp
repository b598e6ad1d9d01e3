#include "admin/verb_status.h"

#include <memory>

#include "admin/status_report.h"
#include "common/verb.h"

namespace kova::ctl {
namespace {

constexpr uint32_t kMostSeconds = 3600;

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
  verb->add_option("--port", arguments->port,
                   "Ask port N (default: as the settings say)")
      ->type_name("N")
      ->check(CLI::Range(1U, 65535U).description(""));
  verb->add_option("--timeout", arguments->seconds,
                   "Wait at most N seconds (default: 5)")
      ->type_name("N")
      ->check(CLI::Range(1U, kMostSeconds).description(""));
  AddJsonFlag(*verb, arguments->json);
  verb->footer(kExamples);
  verb->callback([arguments] { Run(*arguments); });
}

}  // namespace kova::ctl
