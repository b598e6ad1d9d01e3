// The verb "dumps" of the command line.
#pragma once

#include <CLI/CLI.hpp>

namespace kova::ctl {

void AddDumpsVerb(CLI::App& app);

}  // namespace kova::ctl
