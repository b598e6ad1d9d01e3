// Builds responses from any headers and body, and takes their bytes apart.
#include <vector>

#include "http/http_response.h"
#include "test/fuzz/fuzz_input.h"

namespace {

std::string Bytes(const kova::ByteBuffer& buffer) {
  return std::string(buffer.Data() == nullptr ? "" : buffer.Data(),
                     buffer.Size());
}

// The header lines must follow each other as they are, then come an empty line
// and the body, and nothing else.
void Check(const HTTPResponse& response, const std::string& bytes,
           const std::string& body) {
  std::string expected =
      "HTTP/1.1 " + std::string(response.StatusText().NarrowView()) + "\r\n";
  for (int32_t i = 0; i < response.HeaderLines().Count(); ++i) {
    expected += response.HeaderLines()[i].NarrowView();
    expected += "\r\n";
  }
  KOVA_FUZZ_EXPECT(bytes == expected + "\r\n" + body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kova::fuzz::Input input(data, size);
  HTTPResponse response;
  std::string body;
  while (!input.IsUsedUp()) {
    switch (input.Byte() % 4) {
      case 0:
        response.SetStatus(input.Byte() * 4u);
        break;
      case 1: {
        const std::string name = input.Text(20);
        response.SetHeader(name.c_str(), input.Text(40).c_str());
        break;
      }
      case 2: {
        const std::wstring name = kova::fuzz::Widen(input.Text(20));
        response.SetHeader(name.c_str(), L"\u20AC \u0416");
        break;
      }
      default:
        body = input.Text(60);
        response.SetBody(body.data(), static_cast<uint32_t>(body.size()));
    }
    if (response.HeaderLines().Count() > 60) break;
  }
  kova::ByteBuffer out;
  KOVA_FUZZ_EXPECT(response.Serialize(out));
  Check(response, Bytes(out), body);
  KOVA_FUZZ_EXPECT(response.Serialize(out));
  Check(response, Bytes(out), body);
  return 0;
}
