// The step that asks on many threads at once.
#include <thread>
#include <vector>

#include "check/exchange.h"
#include "check/harness.h"

namespace kova::ctl::check {
namespace {

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
  share.requests = harness.ownRequest.empty()
                       ? ThreadRequests(harness.Printer(), thread)
                       : Requests{{harness.ownRequest, Owes::kReason,
                                   harness.ownRequest.starts_with("HEAD ")}};
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

}  // namespace kova::ctl::check
