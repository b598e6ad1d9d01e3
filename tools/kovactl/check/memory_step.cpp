// The step that watches the process's memory over many requests.
#include <algorithm>

#include "check/bench.h"
#include "check/exchange.h"
#include "check/memory_growth.h"
// After the rest of Windows.
#include <psapi.h>

namespace kova::ctl::check {
namespace {

// Two fields are documented to hold the same number; older systems leave the
// one at 0, Wine the other.
int64_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  counters.cb = sizeof(counters);
  ::GetProcessMemoryInfo(::GetCurrentProcess(),
                         reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof(counters));
  return static_cast<int64_t>(
      std::max(counters.PrivateUsage, counters.PagefileUsage));
}

// Hands `requests` over in turn, `count` in all; by how much memory grew.
int64_t GrowthOver(Exchange& exchange, const Requests& requests,
                   uint32_t count) {
  const int64_t before = PrivateBytes();
  for (uint32_t i = 0; i < count; ++i) {
    (void)exchange.Send(requests[i % requests.size()]);
  }
  return PrivateBytes() - before;
}

std::string Kilobytes(int64_t bytes) {
  return std::to_string(bytes / 1024) + " KiB";
}

}  // namespace

bool MemoryStep(Bench& bench) {
  constexpr uint32_t kMostWarmUp = 200;
  const uint32_t count = bench.board.order.requests;
  const Requests requests =
      bench.ownRequest.empty()
          ? ThreadRequests(bench.Printer(), 0)
          : Requests{{bench.ownRequest, Owes::kReason,
                      bench.ownRequest.starts_with("HEAD ")}};
  Exchange exchange(bench.board, 0, bench.extension, bench.sink);
  (void)GrowthOver(exchange, requests, std::min(count, kMostWarmUp));
  const int64_t first = GrowthOver(exchange, requests, count);
  std::string note = Kilobytes(std::max<int64_t>(first, 0)) + " more";
  if (IsSuspicious(first, count)) {
    const int64_t second = GrowthOver(exchange, requests, count);
    if (IsLeak(first, second, count)) {
      bench.sink.Report({Flaw::kMemoryGrowth, Entry::kNone,
                         Kilobytes(first) + " over " + std::to_string(count) +
                             " requests, " + Kilobytes(second) +
                             " over as many again"});
    }
    note += ", then " + Kilobytes(std::max<int64_t>(second, 0));
  }
  bench.sink.Send({{"privateBytesGrowth", first}});
  bench.sink.EndStep(note);
  return true;
}

}  // namespace kova::ctl::check
