// The verb "run".
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

// Adds "run" to `app`. When the command line names it, parsing runs it and
// ends the parse with CLI::RuntimeError holding the exit code if it failed.
void AddRunVerb(CLI::App& app);

}  // namespace kova::ctl
