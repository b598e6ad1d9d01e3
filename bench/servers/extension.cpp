// An extension that costs next to nothing: its answers lie ready in memory.
//
// The path of the request decides: /small and /upload are answered with 1 KiB,
// /large with 8 MiB, /keep with 1 KiB and the connection stays open. Every
// other path is a failure, which the server answers by itself.
#define KOVA_BUILDING_EXTENSION
#include "kova/extension.h"

#include <cstring>
#include <string>
#include <string_view>

#include "bench/servers/answers.h"

namespace {

using kova::bench::AnswerKind;
using kova::bench::MakeAnswer;

struct Answers {
  std::string small = MakeAnswer(AnswerKind::kSmall, false);
  std::string kept = MakeAnswer(AnswerKind::kSmall, true);
};

// Made when it is first asked for, so that the memory of many extensions is
// not all answers.
std::string& LargeAnswer() {
  static std::string answer = MakeAnswer(AnswerKind::kLarge, false);
  return answer;
}

// "/small" of "GET /small?printer=Bench1 HTTP/1.1".
std::string_view Path(std::string_view request) {
  const size_t from = std::min(request.find(' '), request.size() - 1) + 1;
  const size_t to = request.find_first_of("? \r\n", from);
  return request.substr(from, to - from);
}

const std::string& AnswerOf(KOVA_Response response) {
  return *static_cast<const std::string*>(response);
}

}  // namespace

void WSIE_GetInterfaceVersionsSupported(uint32_t* versions, uint32_t) {
  versions[0] = KOVA_INTERFACE_VERSION;
}

void WSIE_SetKOVAServerRestartRoutine(KOVA_RestartRoutine*) {}

// Made for good: there is no call that would give it back.
KOVA_Context WSIE_WebServerInitialize() { return new Answers; }

KOVA_Response WSIE_HandleServerRequest(KOVA_Context context,
                                       const void* request,
                                       uint32_t requestLengthBytes,
                                       const wchar_t*, uint32_t,
                                       uint32_t* keepOpen) {
  auto* const answers = static_cast<Answers*>(context);
  const std::string_view path =
      Path({static_cast<const char*>(request), requestLengthBytes});
  if (path == "/keep") {
    *keepOpen = 1;
    return &answers->kept;
  }
  if (path == "/large") return &LargeAnswer();
  return path == "/small" || path == "/upload" ? &answers->small : nullptr;
}

uint32_t WSIE_GetResponseLength(KOVA_Context, KOVA_Response response) {
  return static_cast<uint32_t>(AnswerOf(response).size());
}

int32_t WSIE_GetResponse(KOVA_Context, KOVA_Response response, void* buffer,
                         uint32_t bufferLengthBytes) {
  std::memcpy(buffer, AnswerOf(response).data(), bufferLengthBytes);
  return 1;
}

void WSIE_ReleaseResponse(KOVA_Context, KOVA_Response) {}
