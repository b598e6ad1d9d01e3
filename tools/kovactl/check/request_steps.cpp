// The steps that hand requests to an extension one by one.
#include "check/exchange.h"
#include "check/harness.h"

namespace kova::ctl::check {
namespace {

std::string Described(const Answer& answer) {
  if (!answer.hasResponse) return "no response, so 400";
  return "status " + std::to_string(answer.status) + ", " +
         std::to_string(answer.bytes.size()) + " bytes";
}

}  // namespace

bool SendEach(Harness& harness, const Requests& requests) {
  Exchange exchange(harness.state, 0, harness.extension, harness.reporter);
  std::string last;
  int answered = 0;
  for (const Request& request : requests) {
    if (!harness.HasTime()) break;
    const Answer answer = exchange.SendTwice(request);
    last = Described(answer);
    if (answer.hasResponse) ++answered;
  }
  harness.reporter.EndStep(
      requests.size() == 1 ? last
                           : std::to_string(answered) + " of " +
                                 std::to_string(requests.size()) + " answered");
  return true;
}

// With a request of the user's own, that one is owed an answer instead.
bool SmallStep(Harness& harness) {
  Requests requests = SmallRequests(harness.Printer());
  if (!harness.ownRequests.empty()) requests.front().owes = Owes::kReason;
  return SendEach(harness, requests);
}

bool OwnStep(Harness& harness) {
  if (harness.ownRequests.empty()) {
    harness.reporter.SkipStep("none given");
    return true;
  }
  Requests requests = harness.ownRequests;
  for (Request& request : requests) request.owes = Owes::kAnswer;
  return SendEach(harness, requests);
}

// The flag is the connection's: each request finds what the one before left.
bool KeepOpenStep(Harness& harness) {
  Exchange exchange(harness.state, 0, harness.extension, harness.reporter);
  std::string kept;
  uint32_t keepOpen = 0;
  for (const Request& request : KeepOpenRequests(harness.Printer())) {
    Answer answer = exchange.Send(request, keepOpen);
    exchange.Judge(request, answer);
    keepOpen = answer.keepOpen;
    kept += (kept.empty() ? "" : ", ") +
            std::string(keepOpen != 0 ? "kept open" : "closed");
  }
  harness.reporter.EndStep(kept);
  return true;
}

bool MeasuredTwiceStep(Harness& harness) {
  Exchange(harness.state, 0, harness.extension, harness.reporter)
      .SendAndMeasureTwice(SmallRequests(harness.Printer()).front());
  harness.reporter.EndStep("");
  return true;
}

}  // namespace kova::ctl::check
