// The verb "check-extension".
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

// Adds the verb, and a hidden one in which the extension runs.
void AddCheckExtensionVerb(CLI::App& app);

}  // namespace kova::ctl
