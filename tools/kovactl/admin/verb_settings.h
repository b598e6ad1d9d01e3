// The verb "settings".
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

// Adds "settings" with "get", "set" and "reset" to `app`; see AddRunVerb.
void AddSettingsVerb(CLI::App& app);

}  // namespace kova::ctl
