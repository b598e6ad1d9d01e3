// Dumps as text of 80 columns and as JSON.
#pragma once

#include <string>
#include <vector>

#include "common/json.h"
#include "logs/crash_dump.h"

namespace kova::ctl {

// "412 KB"; at most 8 characters for every size below 1 PB.
std::wstring SizeText(uint64_t sizeBytes);

// A table, or that there are none in these folders.
std::wstring DumpListText(const std::vector<CrashDump>& dumps,
                          const std::vector<std::wstring>& folders);

// Everything about one dump that was read, and how to open it in a debugger.
std::wstring DumpText(const CrashDump& loaded);

Json DumpListJson(const std::vector<CrashDump>& dumps,
                  const std::vector<std::wstring>& folders);

// One dump, with its registers, threads and modules.
Json DumpJson(const CrashDump& loaded);

}  // namespace kova::ctl
