#include "check/expected_answer.h"

#include <algorithm>

namespace kova::ctl::check {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// A response without its Date line.
std::string WithoutDate(std::string bytes) {
  const size_t start = bytes.find("\r\nDate:");
  if (start == std::string::npos) return bytes;
  return bytes.erase(start, bytes.find("\r\n", start + 2) - start);
}

// Every number in `bytes` as one and the same digit.
std::string WithoutNumbers(std::string bytes) {
  bytes.erase(
      std::unique(bytes.begin(), bytes.end(),
                  [](char a, char b) { return IsDigit(a) && IsDigit(b); }),
      bytes.end());
  std::ranges::replace_if(bytes, &IsDigit, '0');
  return bytes;
}

}  // namespace

ExpectedAnswer::ExpectedAnswer(Exchange& exchange, const Request& request)
    : m_request(request), m_bytes(exchange.Send(request).bytes) {
  Settle(m_bytes, exchange.Send(request).bytes);
}

bool ExpectedAnswer::Matches(const Answer& answer) const {
  // What came without an answer was reported when it came.
  return answer.bytes.empty() || m_sameness == Sameness::kNone ||
         Comparable(answer.bytes) == Comparable(m_bytes);
}

bool ExpectedAnswer::IsWrong(Exchange& exchange, const Answer& answer) {
  if (Matches(answer)) return false;
  const std::string again = exchange.Send(m_request).bytes;
  if (Comparable(again) == Comparable(m_bytes)) return true;
  Settle(m_bytes, again);
  return false;
}

std::string ExpectedAnswer::Comparable(std::string bytes) const {
  bytes = WithoutDate(std::move(bytes));
  return m_sameness == Sameness::kExact ? bytes
                                        : WithoutNumbers(std::move(bytes));
}

// Compares from now on what is the same in both.
void ExpectedAnswer::Settle(const std::string& once, const std::string& again) {
  if (Comparable(once) == Comparable(again)) return;
  const bool mayAgree = m_sameness == Sameness::kExact;
  m_sameness = Sameness::kButNumbers;
  if (!mayAgree || Comparable(once) != Comparable(again)) {
    m_sameness = Sameness::kNone;
  }
}

}  // namespace kova::ctl::check
