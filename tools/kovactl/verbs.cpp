#include "verbs.h"

#include <memory>

#include "common/exit_code.h"
#include "common/help_format.h"

namespace kova::ctl {
namespace {

std::string Footer() {
  return "Examples:\n"
         "  kovactl run --demo\n"
         "  kovactl run --help\n\n" +
         ExitCodeHelp();
}

}  // namespace

void AddEveryVerb(CLI::App& app) {
  app.name("kovactl");
  app.require_subcommand(0, 1);
  // A path may begin with a slash; no option does.
  app.allow_windows_style_options(false);
  // Verbs take it over when they are added.
  app.formatter(std::make_shared<HelpFormatter>());
  app.footer(&Footer);
  AddRunVerb(app);
  AddCheckExtensionVerb(app);
  AddDumpsVerb(app);
  AddLogVerb(app);
  AddNewExtensionVerb(app);
  AddPrintersVerb(app);
  AddProbeVerb(app);
  AddReplayVerb(app);
  AddSettingsVerb(app);
  AddStatusVerb(app);
}

}  // namespace kova::ctl
