#include "bench/log_bench.h"

#include <atomic>
#include <vector>

#include "base/windows_api.h"
#include "bench/bench.h"
#include "log/log_line.h"

namespace kova::bench {
namespace {

constexpr auto kDisabled = tk::LogChannel::DetailInfoP;

// What a line needs at least: is a refresh due, and is the bit set?
std::atomic<uint64_t> g_lastRefresh;
std::atomic<uint32_t> g_mask;
volatile int64_t g_enabledCount;

void LoadAndCompare(int64_t times) {
  for (int64_t i = 0; i < times; ++i) {
    if ((g_mask.load() & tk::Bits(kDisabled)) != 0) g_enabledCount = i;
  }
}

void TickLoadAndCompare(int64_t times) {
  g_lastRefresh = ::GetTickCount64();
  for (int64_t i = 0; i < times; ++i) {
    const uint64_t last = g_lastRefresh.load();
    if (::GetTickCount64() - last > 3600000) g_lastRefresh = 0;
    if ((g_mask.load() & tk::Bits(kDisabled)) != 0) g_enabledCount = i;
  }
}

void DisabledLine(int64_t times) {
  for (int64_t i = 0; i < times; ++i) {
    LogLine(kDisabled, "Class::Method") << L"value " << i << L" of three";
  }
}

}  // namespace

bool BenchDisabledChannel() {
  if (ServerLogger()->IsEnabled(kDisabled)) return false;
  // Only known at run time, or the compiler would do without the load.
  g_mask = ServerLogger()->RefreshMask();
  const std::vector<Case> cases = {
      {"tick count, two loads and compares", &TickLoadAndCompare},
      {"LogLine with three values, disabled", &DisabledLine},
      {"one load and compare", &LoadAndCompare},
  };
  PrintTable("A disabled log channel", cases, Measure(cases, {101, 200000}));
  return true;
}

}  // namespace kova::bench
