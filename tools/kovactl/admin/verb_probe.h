// The verb "probe".
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

// Adds "probe" to `app`; see AddRunVerb.
void AddProbeVerb(CLI::App& app);

}  // namespace kova::ctl
