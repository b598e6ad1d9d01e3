// The verb "printers".
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

// Adds "printers" to `app`; see AddRunVerb.
void AddPrintersVerb(CLI::App& app);

}  // namespace kova::ctl
