#include "answer.h"

#include "kova/extension_http.h"
#include "printer_facts.h"
#include "status_page.h"

namespace sample {
namespace {

constexpr char kHtml[] = "text/html; charset=utf-8";
constexpr char kPlain[] = "text/plain; charset=utf-8";

#define SAMPLE_HEADERS                                                    \
  "Cache-Control: no-store\r\n"                                           \
  "X-Content-Type-Options: nosniff\r\n"                                   \
  "Content-Security-Policy: default-src 'none'; img-src data:; style-src" \
  " 'unsafe-inline'; form-action 'self'\r\n"

std::string Finish(KOVA_HttpResponse response, const char* type,
                   std::string_view body) {
  response.contentType = type;
  response.body = body.data();
  response.bodyBytes = body.size();
  return kova::ResponseBytes(response);
}

std::string Refuse(KOVA_HttpResponse response, uint32_t status,
                   std::string_view words) {
  response.status = status;
  return Finish(response, kPlain, words);
}

}  // namespace

std::string MakeAnswer(std::string_view bytes, const std::string& client,
                       uint64_t answered, uint32_t* keepOpen) {
  KOVA_HttpRequest request;
  const bool isWhole = KOVA_ReadRequest(&request, bytes.data(),
                                        static_cast<uint32_t>(bytes.size()));
  const bool wantsToStayOpen = kova::FormField(request, "keep") == "1";
  KOVA_HttpResponse response =
      KOVA_StartResponse(&request, wantsToStayOpen, keepOpen);
  response.headers = SAMPLE_HEADERS;
  if (!isWhole) return Refuse(response, 400, "This is no whole request.\n");
  if (KOVA_Equals(request.method, "POST")) {
    // An extension cannot wait for a body that did not come with its headers.
    // All it can do is say so, with the one status that invites the client to
    // try again.
    if (KOVA_GetBodyState(&request) == KOVA_BODY_MISSING) {
      return Refuse(response, 408,
                    "The body had not arrived with the headers. Send both in "
                    "one piece.\n");
    }
    return Finish(response, kPlain, kova::View(request.body));
  }
  if (KOVA_Equals(request.method, "GET") || response.isForHead) {
    const PageFacts facts = {FindPrinter(kova::FormField(request, "printer"),
                                         kova::FormField(request, "share")),
                             client, bytes, answered, response.staysOpen != 0};
    return Finish(response, kHtml, StatusPage(facts));
  }
  response.headers = "Allow: GET, HEAD, POST\r\n" SAMPLE_HEADERS;
  return Refuse(response, 405, "GET, HEAD and POST are understood.\n");
}

}  // namespace sample
