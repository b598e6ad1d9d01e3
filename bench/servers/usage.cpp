#include "bench/servers/usage.h"

#include "base/windows_api.h"
#include "test/support/process_counts.h"
// After the Windows headers.
#include <psapi.h>

namespace kova::bench {
namespace {

uint64_t ReadWorkingSet() {
  PROCESS_MEMORY_COUNTERS memory = {};
  ::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof(memory));
  return memory.WorkingSetSize;
}

uint64_t Milliseconds(const FILETIME& time) {
  constexpr uint64_t kUnitsPerMs = 10000;
  return ((uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) /
         kUnitsPerMs;
}

uint64_t ReadCpuMs() {
  FILETIME created = {};
  FILETIME ended = {};
  FILETIME kernel = {};
  FILETIME user = {};
  ::GetProcessTimes(::GetCurrentProcess(), &created, &ended, &kernel, &user);
  return Milliseconds(kernel) + Milliseconds(user);
}

}  // namespace

Usage ReadUsage() {
  Usage usage;
  // First, before the look at the rest adds to it.
  usage.workingSetBytes = ReadWorkingSet();
  usage.cpuMs = ReadCpuMs();
  usage.privateBytes = test::CountPrivateBytes();
  usage.threads = test::CountThreads();
  usage.handles = test::CountHandles();
  return usage;
}

std::string ToJson(const Usage& usage, size_t connections) {
  return "{\"privateBytes\": " + std::to_string(usage.privateBytes) +
         ", \"workingSetBytes\": " + std::to_string(usage.workingSetBytes) +
         ", \"threads\": " + std::to_string(usage.threads) +
         ", \"handles\": " + std::to_string(usage.handles) +
         ", \"cpuMs\": " + std::to_string(usage.cpuMs) +
         ", \"connections\": " + std::to_string(connections) + "}";
}

}  // namespace kova::bench
