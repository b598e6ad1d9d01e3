// The steps that hand over the same requests again and again: on many threads
// at once, and over a long time.
#include <algorithm>
#include <thread>
#include <vector>

#include "check/exchange.h"
#include "check/harness.h"
#include "check/memory_growth.h"
// After the rest of Windows.
#include <psapi.h>

namespace kova::ctl::check {
namespace {

// What thread `thread` asks: its own two requests, or the user's.
Requests RequestsOf(const Harness& harness, size_t thread) {
  return harness.ownRequest.empty()
             ? ThreadRequests(harness.Printer(), thread)
             : Requests{harness.OwnRequest(Owes::kReason)};
}

constexpr int kRounds = 12;

// A response without its Date line, which may differ from second to second.
std::string WithoutDate(std::string bytes) {
  const size_t start = bytes.find("\r\nDate:");
  if (start == std::string::npos) return bytes;
  return bytes.erase(start, bytes.find("\r\n", start + 2) - start);
}

// One thread's requests, and for each the answer it got while it was alone, or
// nothing if that differs from time to time.
struct Share {
  Requests requests;
  std::vector<std::string> alone;
};

Share MakeShare(Harness& harness, size_t thread) {
  Share share;
  share.requests = RequestsOf(harness, thread);
  Exchange exchange(harness.state, 0, harness.extension, harness.reporter);
  for (const Request& request : share.requests) {
    const std::string first = WithoutDate(exchange.Send(request).bytes);
    const std::string second = WithoutDate(exchange.Send(request).bytes);
    share.alone.push_back(first == second ? first : "");
  }
  return share;
}

void AskRepeatedly(Harness& harness, size_t thread, const Share& share) {
  // The main thread has number 0.
  Exchange exchange(harness.state, thread + 1, harness.extension,
                    harness.reporter);
  for (int round = 0; round < kRounds; ++round) {
    for (size_t i = 0; i < share.requests.size(); ++i) {
      const Answer answer = exchange.Send(share.requests[i]);
      if (HoldsOtherMark(answer.bytes, thread)) {
        harness.reporter.Report({Flaw::kMixedAnswers, Callee::kCopy, ""});
      } else if (!share.alone[i].empty() &&
                 WithoutDate(answer.bytes) != share.alone[i]) {
        harness.reporter.Report({Flaw::kDifferingAnswers, Callee::kCopy, ""});
      }
    }
  }
}

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

bool ThreadsStep(Harness& harness) {
  const size_t count = harness.state.task.threads;
  std::vector<Share> shares;
  for (size_t i = 0; i < count; ++i) shares.push_back(MakeShare(harness, i));
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      go.wait(false);
      AskRepeatedly(harness, i, shares[i]);
    });
  }
  go = true;
  go.notify_all();
  for (std::thread& thread : threads) thread.join();
  harness.reporter.EndStep(std::to_string(count) + " threads");
  return true;
}

bool MemoryStep(Harness& harness) {
  constexpr uint32_t kMostWarmUp = 200;
  const uint32_t count = harness.state.task.requests;
  const Requests requests = RequestsOf(harness, 0);
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
