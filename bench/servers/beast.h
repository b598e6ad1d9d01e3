// Boost.Beast, as the contestants that are built on it include it.
#pragma once

// First: Winsock 2 has one order of headers that works.
#include "base/windows_api.h"
// clang-format off
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
// clang-format on

#include <string>

#include "bench/servers/answers.h"

namespace kova::bench {

using BeastParser =
    boost::beast::http::request_parser<boost::beast::http::string_body>;
using BeastResponse =
    boost::beast::http::response<boost::beast::http::span_body<const char>>;

// The largest body that a request may have.
inline constexpr uint64_t kMostRequestBodyBytes = uint64_t{128} << 20;

// The answers of one kind, one for each request. Read by any number of threads.
class BeastAnswers {
 public:
  explicit BeastAnswers(AnswerKind kind)
      : m_kind(kind), m_body(MakeBody(kind)) {}

  // The answer to `request`; its connection stays open if the request says so,
  // except after a refusal, whose end only the end of the connection tells.
  // Refers to the body, which lies in this object.
  [[nodiscard]] BeastResponse To(const BeastParser::value_type& request) const;

 private:
  const AnswerKind m_kind;
  const std::string m_body;
};

}  // namespace kova::bench
