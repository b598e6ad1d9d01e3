#include "bench/servers/answers.h"

#include <ctime>

#include "test/support/bad_request.h"

namespace kova::bench {
namespace {

constexpr size_t kSmallBodyBytes = 1024;
constexpr size_t kLargeBodyBytes = size_t{8} << 20;

std::string HttpDate() {
  const std::time_t now = std::time(nullptr);
  char text[64] = {};
  std::strftime(text, sizeof(text), "%a, %d %b %Y %H:%M:%S GMT",
                std::gmtime(&now));
  return text;
}

std::string Refusal() {
  constexpr const char* kMark = "<date>";
  std::string answer = test::BadRequest();
  return answer.replace(answer.find(kMark), std::string(kMark).size(),
                        HttpDate());
}

}  // namespace

std::string MakeBody(AnswerKind kind) {
  switch (kind) {
    case AnswerKind::kRefusal:
      return std::string();
    case AnswerKind::kSmall:
      return std::string(kSmallBodyBytes, 's');
    case AnswerKind::kLarge:
      return std::string(kLargeBodyBytes, 'l');
  }
  return std::string();
}

std::string MakeAnswer(AnswerKind kind, bool keepOpen) {
  if (kind == AnswerKind::kRefusal) return Refusal();
  const std::string body = MakeBody(kind);
  return "HTTP/1.1 200 OK\r\n"
         "Content-Type: text/plain\r\n"
         "Content-Length: " +
         std::to_string(body.size()) +
         "\r\nConnection: " + (keepOpen ? "keep-alive" : "close") + "\r\n\r\n" +
         body;
}

}  // namespace kova::bench
