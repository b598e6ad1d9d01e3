// Dumps as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "logs/loaded_dump.h"

namespace kova::ctl {

nlohmann::ordered_json DumpListJson(const std::vector<LoadedDump>& dumps,
                                    const std::vector<std::wstring>& folders);

// One dump, with its registers, threads and modules.
nlohmann::ordered_json DumpJson(const LoadedDump& loaded);

}  // namespace kova::ctl
