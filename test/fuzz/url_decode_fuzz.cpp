// Decodes escaped text and compares with the rule, written out.
#include "http/url_decode.h"
#include "test/fuzz/fuzz_input.h"
#include "text/o_string.h"

namespace {

std::string Decode(const std::string& text) {
  std::string decoded;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '+') {
      decoded += ' ';
    } else if (text[at] != '%') {
      decoded += text[at];
    } else if (at + 2 < text.size()) {
      decoded +=
          static_cast<char>(kova::fuzz::Escaped(text[at + 1], text[at + 2]));
      at += 2;
    } else {
      break;
    }
  }
  return decoded.substr(0, decoded.find('\0'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const OString decoded = kova::UrlDecodeBytes(text);
  KOVA_FUZZ_EXPECT(decoded.NarrowView() == Decode(text));
  (void)decoded.Wide();
  return 0;
}
