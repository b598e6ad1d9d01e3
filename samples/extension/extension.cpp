// A network extension to start from: the seven functions the server calls. The
// interesting decisions are made in answer.cpp.
#define KOVA_BUILDING_EXTENSION
#include "kova/extension.h"

#include <atomic>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "answer.h"

namespace {

// What all requests share. Requests come on several threads at once, so
// whatever lies here must be safe for that.
struct Extension {
  std::atomic<uint64_t> answered{0};
  std::atomic<KOVA_RestartRoutine*> restart{nullptr};
};

// Never destroyed: the server has no call for that, and threads may still be
// inside when the process ends.
Extension& TheExtension() {
  static Extension* const extension = new Extension;
  return *extension;
}

// Addresses are digits and punctuation; anything else is shown as '?'.
std::string ToNarrow(const wchar_t* text, uint32_t length) {
  std::string narrow;
  for (uint32_t i = 0; i < length; ++i) {
    narrow += text[i] < 0x80 ? static_cast<char>(text[i]) : '?';
  }
  return narrow;
}

// The server catches no exceptions, so none may leave a function it calls;
// what can throw runs in here. The standard library, which is all that is
// used below, throws nothing but std::exception.
template <typename Result, typename Body>
Result Contained(Result onFailure, const Body& body) {
  try {
    return body();
  } catch (const std::exception&) {
    return onFailure;
  }
}

// A response is the bytes to be sent.
std::string* AsBytes(KOVA_Response response) {
  return static_cast<std::string*>(response);
}

}  // namespace

void WSIE_GetInterfaceVersionsSupported(uint32_t* versions, uint32_t capacity) {
  if (versions != nullptr && capacity > 0) {
    versions[0] = KOVA_INTERFACE_VERSION;
  }
}

// Kept for an extension whose settings page changes the server's settings; this
// one has none.
void WSIE_SetKOVAServerRestartRoutine(KOVA_RestartRoutine* routine) {
  Contained(0, [&] {
    TheExtension().restart = routine;
    return 0;
  });
}

KOVA_Context WSIE_WebServerInitialize(void) {
  return Contained<KOVA_Context>(nullptr, [] { return &TheExtension(); });
}

KOVA_Response WSIE_HandleServerRequest(KOVA_Context context,
                                       const void* request,
                                       uint32_t requestLengthBytes,
                                       const wchar_t* clientAddress,
                                       uint32_t clientAddressLength,
                                       uint32_t* keepOpen) {
  if (context == nullptr || request == nullptr || keepOpen == nullptr) {
    return nullptr;
  }
  return Contained<KOVA_Response>(nullptr, [&] {
    auto& extension = *static_cast<Extension*>(context);
    const std::string_view bytes(static_cast<const char*>(request),
                                 requestLengthBytes);
    auto response = std::make_unique<std::string>(
        sample::MakeAnswer(bytes, ToNarrow(clientAddress, clientAddressLength),
                           ++extension.answered, keepOpen));
    return response.release();
  });
}

uint32_t WSIE_GetResponseLength(KOVA_Context, KOVA_Response response) {
  if (response == nullptr) return 0;
  return static_cast<uint32_t>(AsBytes(response)->size());
}

int32_t WSIE_GetResponse(KOVA_Context, KOVA_Response response, void* buffer,
                         uint32_t bufferLengthBytes) {
  if (response == nullptr || buffer == nullptr) return 0;
  const std::string& bytes = *AsBytes(response);
  if (bufferLengthBytes < bytes.size()) return 0;
  std::memcpy(buffer, bytes.data(), bytes.size());
  return 1;
}

void WSIE_ReleaseResponse(KOVA_Context, KOVA_Response response) {
  delete AsBytes(response);
}
