// What a log line costs beside the clock read and the atomic load that it
// cannot do without.
#include <benchmark/benchmark.h>

#include <atomic>

#include "base/windows_api.h"
#include "log/log_line.h"
#include "logging_calls.h"

namespace kova::bench {
namespace {

constexpr auto kChannel = tk::LogChannel::DetailInfoP;

// The clock, the registry, the file and the event log are stand-ins: the clock
// is one atomic addition, the others only look at what they are given.
void SetMask(uint32_t mask) {
  auto& calls = test::TheLoggingCalls();
  calls.stepMs = 0;
  calls.mask = mask;
  calls.nowMs += 10000;  // a refresh is due
  (void)ServerLogger()->RefreshMask();
}

void ClockAndLoad(benchmark::State& state) {
  SetMask(0);
  std::atomic<uint32_t> mask{0};
  for (auto _ : state) {
    benchmark::DoNotOptimize(::GetTickCount64());
    benchmark::DoNotOptimize(mask.load());
  }
}
BENCHMARK(ClockAndLoad)->Name("Log/clock_and_load");

void Line(benchmark::State& state, uint32_t mask) {
  SetMask(mask);
  int64_t i = 0;
  for (auto _ : state) {
    LogLine(kChannel, "Class::Method") << L"value " << ++i << L" of three";
  }
}
BENCHMARK_CAPTURE(Line, disabled, 0)->Name("Log/disabled_line");
BENCHMARK_CAPTURE(Line, enabled, tk::Bits(kChannel))->Name("Log/enabled_line");

}  // namespace
}  // namespace kova::bench
