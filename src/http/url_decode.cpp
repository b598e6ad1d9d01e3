#include "http/url_decode.h"

#include <algorithm>
#include <string>

namespace {

// Deliberate: characters that are no hexadecimal digits get a value too, as
// clients that escape carelessly have always been read.
unsigned ValueOf(char character) {
  const unsigned c = static_cast<unsigned char>(character);
  return c >= '0' && c <= '9' ? c - '0' : (c & 15u) + 9;
}

size_t FindEscape(std::string_view bytes) {
  const auto isEscape = [](char c) { return c == '%' || c == '+'; };
  const auto found = std::find_if(bytes.begin(), bytes.end(), isEscape);
  return static_cast<size_t>(found - bytes.begin());
}

}  // namespace

OString UrlDecode(const OString& text) {
  return kova::UrlDecodeBytes(text.NarrowView());
}

OString kova::UrlDecodeBytes(std::string_view bytes) {
  const size_t first = FindEscape(bytes);
  if (first == bytes.size()) return OString::FromUtf8(bytes);
  std::string decoded(bytes.substr(0, first));
  decoded.reserve(bytes.size());
  for (size_t at = first; at < bytes.size(); ++at) {
    char byte = bytes[at];
    if (byte == '+') {
      byte = ' ';
    } else if (byte == '%') {
      if (bytes.size() - at < 3) break;
      byte = static_cast<char>(ValueOf(bytes[at + 1]) * 16 +
                               ValueOf(bytes[at + 2]));
      at += 2;
    }
    if (byte == 0) break;
    decoded += byte;
  }
  return OString::FromUtf8(decoded);
}
