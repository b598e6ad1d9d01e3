// Reads requests as extensions do and as the server does, and compares; makes
// responses of whatever comes, and reads their lengths.
#include <optional>

#include "http/http_request.h"
#include "kova/extension_http.h"
#include "test/fuzz/fuzz_input.h"

namespace {

void CompareRequest(const std::string& bytes) {
  HTTPRequest server;
  const bool verdict = server.ParseInPlace(
      bytes.data(), static_cast<int32_t>(bytes.size()), true);
  KOVA_HttpRequest mine;
  const bool isRead =
      KOVA_ReadRequest(&mine, bytes.data(),
                       static_cast<uint32_t>(bytes.size())) != 0;
  if (verdict) {
    KOVA_FUZZ_EXPECT(isRead);
    KOVA_FUZZ_EXPECT(kova::View(mine.method) == server.Method().NarrowView());
    KOVA_FUZZ_EXPECT(kova::View(mine.version) == server.Version().NarrowView());
    KOVA_FUZZ_EXPECT(mine.body.length == server.BodyLength());
    KOVA_FUZZ_EXPECT(mine.body.length == 0 || mine.body.bytes == server.Body());
    for (const char* const name : {"Connection", "a", ""}) {
      KOVA_FUZZ_EXPECT(kova::View(KOVA_Header(&mine, name)) ==
                       server.GetHeader(name).NarrowView());
    }
  } else {
    // Only a body that is not all there yet makes the difference.
    KOVA_FUZZ_EXPECT(!isRead || KOVA_GetBodyState(&mine) == KOVA_BODY_MISSING);
  }
  for (const char* const name : {"printer", "a", ""}) {
    KOVA_FUZZ_EXPECT(kova::FormFieldWide(mine, name) ==
                     server.GetFormValue(kova::fuzz::Widen(name)));
    KOVA_FUZZ_EXPECT(kova::FormField(mine, name).size() <= bytes.size());
  }
}

void MakeResponse(kova::fuzz::Input& input, const KOVA_HttpRequest& request) {
  uint32_t flag = 0;
  KOVA_HttpResponse response =
      KOVA_StartResponse(&request, input.Byte() & 1, &flag);
  response.status = input.Byte() * 3u;
  const std::string type = input.Text(20);
  const std::string headers = input.Text(40);
  const std::string body = input.Text(40);
  response.contentType = type.c_str();
  response.headers = headers.c_str();
  response.body = body.data();
  response.bodyBytes = body.size();
  const std::string bytes = kova::ResponseBytes(response);
  KOVA_FUZZ_EXPECT(bytes.size() == KOVA_ResponseLength(&response));
  if (bytes.empty()) return;
  const size_t end = bytes.find("\r\n\r\n");
  KOVA_FUZZ_EXPECT(end != std::string::npos);
  const size_t sent = bytes.size() - end - 4;
  const bool hasNone = response.status == 204 || response.status == 304;
  KOVA_FUZZ_EXPECT(sent == (hasNone || response.isForHead ? 0 : body.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string whole(reinterpret_cast<const char*>(data), size);
  CompareRequest(whole);
  CompareRequest(whole.substr(0, size / 2));
  KOVA_HttpRequest request;
  KOVA_ReadRequest(&request, whole.data(), static_cast<uint32_t>(size));
  kova::fuzz::Input input(data, size);
  MakeResponse(input, request);
  return 0;
}
