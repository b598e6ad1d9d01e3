// The verb "log" of the command line.
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

void AddLogVerb(CLI::App& app);

}  // namespace kova::ctl
