#include "http/request_line.h"

#include "base/ascii.h"
#include "base/byte_search.h"
#include "http/url_decode.h"

namespace kova {

namespace {

// The part before the first blank or tab, and what begins with that one; all
// of `text` and nothing where there is none.
struct Halves {
  std::string_view before;
  std::string_view from;
};

Halves SplitAtBlank(std::string_view text) {
  const size_t blank = FindEither(text, 0, ' ', '\t');
  return {text.substr(0, blank), text.substr(blank)};
}

}  // namespace

std::optional<RequestLine> SplitRequestLine(std::string_view line) {
  const Halves method = SplitAtBlank(TrimStart(line, kBlanks));
  if (method.from.empty()) return std::nullopt;
  RequestLine found;
  found.method = method.before;
  const Halves path = SplitAtBlank(TrimStart(method.from, kBlanks));
  if (path.from.empty()) {
    found.path = TrimEnd(path.before, kBlanksAndLineEnds);
    found.version = "HTTP/1.0";
  } else {
    found.path = path.before;
    // Deliberate: the version is neither checked nor cut at a further blank.
    found.version = TrimEnd(TrimStart(path.from, kBlanks), kBlanksAndLineEnds);
  }
  const size_t query = FindByte(found.path, 0, '?');
  if (query != found.path.size()) {
    found.query = found.path.substr(query + 1);
    found.path = found.path.substr(0, query);
  }
  return found;
}

bool HasMethodAndPath(const RequestLine& line) {
  return !line.method.empty() && DecodesToText(line.path);
}

}  // namespace kova
