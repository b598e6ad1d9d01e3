#include "bench/servers/beast.h"

namespace kova::bench {
namespace {

namespace http = boost::beast::http;

void MakeRefusal(BeastResponse& response) {
  response.result(http::status::bad_request);
  response.set(http::field::content_type, "application/octet-stream");
  response.set(http::field::cache_control, "no-cache");
  response.set(http::field::date, "Sat, 21 Nov 2026 00:00:00 GMT");
  response.set(http::field::server, "VM");
  response.set(http::field::accept_ranges, "None");
  response.keep_alive(false);
}

}  // namespace

BeastResponse BeastAnswers::To(const BeastParser::value_type& request) const {
  BeastResponse response;
  response.version(request.version());
  if (m_kind == AnswerKind::kRefusal) {
    MakeRefusal(response);
    return response;
  }
  response.result(http::status::ok);
  response.set(http::field::content_type, "text/plain");
  response.body() = {m_body.data(), m_body.size()};
  response.keep_alive(request.keep_alive());
  response.prepare_payload();
  return response;
}

}  // namespace kova::bench
