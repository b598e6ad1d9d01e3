// Dumps as text of 80 columns.
#pragma once

#include <string>
#include <vector>

#include "logs/loaded_dump.h"

namespace kova::ctl {

// A table, or that there are none in these folders.
std::wstring DumpListText(const std::vector<LoadedDump>& dumps,
                          const std::vector<std::wstring>& folders);

// Everything about one dump that was read, and how to open it in a debugger.
std::wstring DumpText(const LoadedDump& loaded);

}  // namespace kova::ctl
