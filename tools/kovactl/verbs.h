// The verbs of the command line, each made where its work is done.
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

// Makes `app` the tool's command line: all verbs, their help, no version yet.
void AddEveryVerb(CLI::App& app);

// Each adds its verb to `app`. When the command line names the verb, parsing
// runs it, and ends with CLI::RuntimeError holding the exit code if it failed.
void AddPrintersVerb(CLI::App& app);
void AddProbeVerb(CLI::App& app);
void AddSettingsVerb(CLI::App& app);
void AddStatusVerb(CLI::App& app);
// And a hidden verb, in which the extension runs.
void AddCheckExtensionVerb(CLI::App& app);
void AddDumpsVerb(CLI::App& app);
void AddLogVerb(CLI::App& app);
void AddNewExtensionVerb(CLI::App& app);
void AddReplayVerb(CLI::App& app);
void AddRunVerb(CLI::App& app);

}  // namespace kova::ctl
