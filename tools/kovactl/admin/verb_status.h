// The verb "status".
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

// Adds "status" to `app`; see AddRunVerb.
void AddStatusVerb(CLI::App& app);

}  // namespace kova::ctl
