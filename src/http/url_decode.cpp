#include "http/url_decode.h"

#include <string>

#include "base/find_byte.h"

namespace {

// Deliberate: characters that are no hexadecimal digits get a value too, as
// clients that escape carelessly have always been read.
unsigned ValueOf(char character) {
  const unsigned c = static_cast<unsigned char>(character);
  return c >= '0' && c <= '9' ? c - '0' : (c & 15u) + 9;
}

// One decoded byte and how many bytes stood for it. A zero ends the text.
struct Decoded {
  char byte;
  size_t taken;
};

Decoded DecodeAt(std::string_view bytes, size_t at) {
  if (bytes[at] == '+') return {' ', 1};
  if (bytes[at] != '%') return {bytes[at], 1};
  if (bytes.size() - at < 3) return {0, 1};
  return {
      static_cast<char>(ValueOf(bytes[at + 1]) * 16 + ValueOf(bytes[at + 2])),
      3};
}

// Writes the decoded bytes to `out`, which has room for as many as there are
// encoded ones, and returns how many they are.
size_t DecodeInto(std::string_view bytes, char* out) {
  size_t written = 0;
  for (size_t at = 0; at < bytes.size();) {
    const Decoded decoded = DecodeAt(bytes, at);
    if (decoded.byte == 0) break;
    out[written++] = decoded.byte;
    at += decoded.taken;
  }
  return written;
}

}  // namespace

OString UrlDecode(const OString& text) {
  return kova::UrlDecodeBytes(text.NarrowView());
}

namespace kova {

OString UrlDecodeBytes(std::string_view bytes) {
  // Most values are this short, and need no memory but their text's.
  constexpr size_t kShortBytes = 256;
  if (FindEither(bytes, 0, '%', '+') == bytes.size()) {
    return OString::FromUtf8(bytes);
  }
  if (bytes.size() <= kShortBytes) {
    char decoded[kShortBytes];
    return OString::FromUtf8({decoded, DecodeInto(bytes, decoded)});
  }
  std::string decoded(bytes.size(), '\0');
  decoded.resize(DecodeInto(bytes, decoded.data()));
  return OString::FromUtf8(decoded);
}

bool DecodesToText(std::string_view bytes) {
  return !bytes.empty() && DecodeAt(bytes, 0).byte != 0;
}

}  // namespace kova
