// The step that asks on many threads at once.
#include <thread>
#include <vector>

#include "check/bench.h"
#include "check/exchange.h"

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

Share MakeShare(Bench& bench, size_t thread) {
  Share share;
  share.requests = bench.ownRequest.empty()
                       ? ThreadRequests(bench.Printer(), thread)
                       : Requests{{bench.ownRequest, Owes::kReason,
                                   bench.ownRequest.starts_with("HEAD ")}};
  Exchange exchange(bench.board, 0, bench.extension, bench.sink);
  for (const Request& request : share.requests) {
    const std::string first = WithoutDate(exchange.Send(request).bytes);
    const std::string second = WithoutDate(exchange.Send(request).bytes);
    share.alone.push_back(first == second ? first : "");
  }
  return share;
}

void AskRepeatedly(Bench& bench, size_t thread, const Share& share) {
  // The board's first slot is the main thread's.
  Exchange exchange(bench.board, thread + 1, bench.extension, bench.sink);
  for (int round = 0; round < kRounds; ++round) {
    for (size_t i = 0; i < share.requests.size(); ++i) {
      const Answer answer = exchange.Send(share.requests[i]);
      if (HoldsOtherMark(answer.bytes, thread)) {
        bench.sink.Report({Flaw::kMixedAnswers, Entry::kCopy, ""});
      } else if (!share.alone[i].empty() &&
                 WithoutDate(answer.bytes) != share.alone[i]) {
        bench.sink.Report({Flaw::kDifferingAnswers, Entry::kCopy, ""});
      }
    }
  }
}

}  // namespace

bool ThreadsStep(Bench& bench) {
  const size_t count = bench.board.order.threads;
  std::vector<Share> shares;
  for (size_t i = 0; i < count; ++i) shares.push_back(MakeShare(bench, i));
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      go.wait(false);
      AskRepeatedly(bench, i, shares[i]);
    });
  }
  go = true;
  go.notify_all();
  for (std::thread& thread : threads) thread.join();
  bench.sink.EndStep(std::to_string(count) + " threads");
  return true;
}

}  // namespace kova::ctl::check
