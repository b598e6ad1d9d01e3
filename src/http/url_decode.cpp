#include "http/url_decode.h"

#include <string>

namespace {

// Deliberate: characters that are no hexadecimal digits get a value too, as
// clients that escape carelessly have always been read.
unsigned ValueOf(char character) {
  const unsigned c = static_cast<unsigned char>(character);
  return c >= '0' && c <= '9' ? c - '0' : (c & 15u) + 9;
}

}  // namespace

OString UrlDecode(const OString& text) {
  return kova::UrlDecodeBytes(text.NarrowView());
}

OString kova::UrlDecodeBytes(std::string_view bytes) {
  const size_t first = bytes.find_first_of("%+");
  if (first == bytes.npos) return OString::FromUtf8(bytes);
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
