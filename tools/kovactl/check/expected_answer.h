// What a request is answered with while it is alone, to tell by it a wrong
// answer among many.
#pragma once

#include <string>

#include "check/exchange.h"

namespace kova::ctl::check {

// A page may change by itself: its date, a counter, the time of day. So an
// answer is wrong only if the request, asked once more, is answered as at
// first. Used by one thread at a time.
class ExpectedAnswer {
 public:
  // Asks `request`, which must stay, a few times; nothing else may be asked
  // meanwhile.
  ExpectedAnswer(Exchange& exchange, const Request& request);

  // Whether `answer` is as expected, so that no more has to be known of it. Any
  // number of threads at once.
  [[nodiscard]] bool Matches(const Answer& answer) const;

  // Whether an answer that does not match is wrong. Asks again.
  [[nodiscard]] bool IsWrong(Exchange& exchange, const Answer& answer);

 private:
  // What is compared: all, all but numbers, nothing.
  enum class Sameness { kExact, kButNumbers, kNone };

  [[nodiscard]] std::string Comparable(std::string bytes) const;
  void Settle(const std::string& once, const std::string& again);

  const Request& m_request;
  std::string m_bytes;
  Sameness m_sameness = Sameness::kExact;
};

}  // namespace kova::ctl::check
