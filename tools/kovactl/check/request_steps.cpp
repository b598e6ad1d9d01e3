// The steps that hand requests to an extension one by one.
#include "check/bench.h"
#include "check/exchange.h"

namespace kova::ctl::check {
namespace {

std::string Described(const Answer& answer) {
  if (!answer.hasResponse) return "no response, so 400";
  return "status " + std::to_string(answer.status) + ", " +
         std::to_string(answer.bytes.size()) + " bytes";
}

// Hands `requests` over one after the other, each on a connection of its own,
// and ends the step.
bool SendEach(Bench& bench, const Requests& requests) {
  Exchange exchange(bench.board, 0, bench.extension, bench.sink);
  std::string last;
  int answered = 0;
  for (const Request& request : requests) {
    const Answer answer = exchange.Send(request);
    last = Described(answer);
    if (answer.hasResponse) ++answered;
  }
  bench.sink.EndStep(requests.size() == 1
                         ? last
                         : std::to_string(answered) + " of " +
                               std::to_string(requests.size()) + " answered");
  return true;
}

}  // namespace

// With a request of the user's own, that one is owed an answer instead.
bool SmallStep(Bench& bench) {
  Requests requests = SmallRequests(bench.Printer());
  if (!bench.ownRequest.empty()) requests.front().owes = Owes::kReason;
  return SendEach(bench, requests);
}

bool BareStep(Bench& bench) {
  return SendEach(bench, BareRequests(bench.Printer()));
}

bool HeadStep(Bench& bench) {
  return SendEach(bench, HeadRequests(bench.Printer()));
}

bool FormStep(Bench& bench) {
  return SendEach(bench, FormRequests(bench.Printer()));
}

bool BinaryStep(Bench& bench) {
  return SendEach(bench, BinaryRequests(bench.Printer()));
}

bool LargeStep(Bench& bench) {
  return SendEach(bench, LargeRequests(bench.Printer()));
}

bool LongTargetStep(Bench& bench) {
  return SendEach(bench, LongTargetRequests(bench.Printer()));
}

bool BodilessStep(Bench& bench) {
  return SendEach(bench, BodilessRequests(bench.Printer()));
}

bool MalformedStep(Bench& bench) {
  return SendEach(bench, MalformedRequests(bench.Printer()));
}

bool BareAddressStep(Bench& bench) {
  return SendEach(bench, AddressRequests(bench.Printer()));
}

bool OwnStep(Bench& bench) {
  if (bench.ownRequest.empty()) {
    bench.sink.SkipStep("none given");
    return true;
  }
  return SendEach(bench, {{bench.ownRequest, Owes::kAnswer,
                           bench.ownRequest.starts_with("HEAD ")}});
}

// The flag is the connection's: each request finds what the one before left.
bool KeepOpenStep(Bench& bench) {
  Exchange exchange(bench.board, 0, bench.extension, bench.sink);
  std::string kept;
  uint32_t keepOpen = 0;
  for (const Request& request : KeepOpenRequests(bench.Printer())) {
    keepOpen = exchange.Send(request, keepOpen).keepOpen;
    kept += (kept.empty() ? "" : ", ") +
            std::string(keepOpen != 0 ? "kept open" : "closed");
  }
  bench.sink.EndStep(kept);
  return true;
}

bool UnfetchedStep(Bench& bench) {
  Exchange exchange(bench.board, 0, bench.extension, bench.sink);
  const Request request = SmallRequests(bench.Printer()).front();
  // Twice, because a second one shows what the first one spoiled.
  exchange.SendAndRelease(request);
  exchange.SendAndRelease(request);
  bench.sink.EndStep("");
  return true;
}

}  // namespace kova::ctl::check
