// The step that watches the process's memory over many requests.
#include <algorithm>

#include "check/exchange.h"
#include "check/harness.h"
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

bool MemoryStep(Harness& harness) {
  constexpr uint32_t kMostWarmUp = 200;
  const uint32_t count = harness.state.task.requests;
  const Requests requests =
      harness.ownRequest.empty()
          ? ThreadRequests(harness.Printer(), 0)
          : Requests{{harness.ownRequest, Owes::kReason,
                      harness.ownRequest.starts_with("HEAD ")}};
  Exchange exchange(harness.state, 0, harness.extension, harness.reporter);
  (void)GrowthOver(exchange, requests, std::min(count, kMostWarmUp));
  const int64_t first = GrowthOver(exchange, requests, count);
  std::string note = Kilobytes(std::max<int64_t>(first, 0)) + " more";
  if (IsSuspicious(first, count)) {
    const int64_t second = GrowthOver(exchange, requests, count);
    if (IsLeak(first, second, count)) {
      harness.reporter.Report({Flaw::kMemoryGrowth, Callee::kNone,
                               Kilobytes(first) + " over " +
                                   std::to_string(count) + " requests, " +
                                   Kilobytes(second) + " over as many again"});
    }
    note += ", then " + Kilobytes(std::max<int64_t>(second, 0));
  }
  harness.reporter.Send({{"privateBytesGrowth", first}});
  harness.reporter.EndStep(note);
  return true;
}

}  // namespace kova::ctl::check
