#include "http/url_decode.h"

#include "base/ascii.h"
#include "base/byte_search.h"
#include "text/string_codec.h"

namespace {

// One decoded byte and how many bytes stood for it. A zero ends the text.
struct Decoded {
  char byte;
  size_t taken;
};

Decoded DecodeAt(std::string_view bytes, size_t at) {
  if (bytes[at] == '+') return {' ', 1};
  if (bytes[at] != '%') return {bytes[at], 1};
  if (bytes.size() - at < 3) return {0, 1};
  return {kova::EscapedByte(bytes[at + 1], bytes[at + 2]), 3};
}

// Reads the decoded text unit by unit.
class WideReader {
 public:
  explicit WideReader(std::string_view bytes) : m_bytes(bytes) {}

  // Zero at the end, then and ever after.
  wchar_t Next() {
    char sequence[4] = {};
    for (size_t count = 1; count < sizeof(sequence); ++count) {
      const char byte = NextByte();
      if (byte == 0) return 0;
      sequence[count - 1] = byte;
      // What begins a sequence is no text before the rest of it is there.
      wchar_t unit[2];
      if (kova::ConvertToWide(kova::kCodePageUtf8, sequence, count, unit, 2)) {
        return unit[0];
      }
    }
    m_at = m_bytes.size();
    return 0;
  }

 private:
  char NextByte() {
    if (m_at == m_bytes.size()) return 0;
    const Decoded decoded = DecodeAt(m_bytes, m_at);
    m_at = decoded.byte == 0 ? m_bytes.size() : m_at + decoded.taken;
    return decoded.byte;
  }

  const std::string_view m_bytes;
  size_t m_at = 0;
};

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

std::wstring UrlDecodeToWide(std::string_view bytes) {
  size_t length = 0;
  for (WideReader reader(bytes); reader.Next() != 0;) ++length;
  std::wstring text(length, L'\0');
  WideReader reader(bytes);
  for (wchar_t& unit : text) unit = reader.Next();
  return text;
}

bool DecodesToName(std::string_view bytes, std::wstring_view name) {
  WideReader reader(bytes);
  for (const wchar_t unit : name) {
    if (FoldAscii(reader.Next()) != FoldAscii(unit)) return false;
  }
  return reader.Next() == 0;
}

bool DecodesToText(std::string_view bytes) {
  return !bytes.empty() && DecodeAt(bytes, 0).byte != 0;
}

}  // namespace kova
