#include "answer.h"

#include <string_view>
#include <utility>

#include "printer_facts.h"
#include "status_page.h"

namespace sample {
namespace {

constexpr std::string_view kHtml = "text/html; charset=utf-8";
constexpr std::string_view kPlain = "text/plain; charset=utf-8";

// A connection can be used again only if exactly one request lies behind us:
// bytes that are missing or left over would be taken for the next request.
bool MayKeepOpen(const Request& request) {
  return FormValue(request, "keep") == "1" &&
         request.body.size() == request.announcedBodyBytes;
}

// Content-Length is what lets a client find the end of an answer on a
// connection that stays open.
Answer Compose(std::string_view status, std::string_view type,
               std::string_view body, bool keepOpen) {
  Answer answer;
  answer.keepOpen = keepOpen;
  std::string& out = answer.bytes;
  out.append("HTTP/1.1 ").append(status);
  out.append("\r\nContent-Type: ").append(type);
  out.append("\r\nContent-Length: ").append(std::to_string(body.size()));
  out.append("\r\nConnection: ").append(keepOpen ? "keep-alive" : "close");
  out.append("\r\nCache-Control: no-store");
  out.append("\r\nX-Content-Type-Options: nosniff");
  out.append(
      "\r\nContent-Security-Policy: default-src 'none'; img-src data:; "
      "style-src 'unsafe-inline'; form-action 'self'");
  out.append("\r\n\r\n").append(body);
  return answer;
}

Answer Page(const Request& request, const std::string& client,
            uint64_t answered) {
  PageFacts facts;
  facts.printer =
      FindPrinter(FormValue(request, "printer"), FormValue(request, "share"));
  facts.client = client;
  facts.answered = answered;
  facts.keptOpen = MayKeepOpen(request);
  return Compose("200 OK", kHtml, StatusPage(request, facts), facts.keptOpen);
}

// The server passes a request on as soon as its headers are complete and none
// of its body is there yet. An extension cannot wait for the rest; all it can
// do is say so, with the one status that invites the client to try again.
Answer Echo(const Request& request) {
  if (request.body.size() < request.announcedBodyBytes) {
    return Compose("408 Request Timeout", kPlain,
                   "The body had not arrived with the headers. Send both in "
                   "one piece.\n",
                   false);
  }
  return Compose("200 OK", kPlain, request.body, MayKeepOpen(request));
}

// The same headers, Content-Length included, and nothing after them.
Answer WithoutBody(Answer answer) {
  answer.bytes.resize(answer.bytes.find("\r\n\r\n") + 4);
  return answer;
}

}  // namespace

Answer MakeAnswer(const Request& request, const std::string& client,
                  uint64_t answered) {
  if (request.method == "GET") return Page(request, client, answered);
  if (request.method == "HEAD") {
    return WithoutBody(Page(request, client, answered));
  }
  if (request.method == "POST") return Echo(request);
  return Compose("405 Method Not Allowed\r\nAllow: GET, HEAD, POST", kPlain,
                 "GET, HEAD and POST are understood.\n", false);
}

}  // namespace sample
