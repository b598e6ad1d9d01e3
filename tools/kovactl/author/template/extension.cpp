// The network extension @NAME@: what a printer answers to HTTP requests.
#define KOVA_BUILDING_EXTENSION
#include <atomic>
#include <cstring>
#include <exception>
#include <string>

#include "kova/extension.h"
#include "kova/extension_http.h"

namespace {

// What all requests share. They come on several threads at once: see that what
// you add here is safe for that.
struct Extension {
  std::atomic<KOVA_RestartRoutine*> restart{nullptr};
};

Extension g_extension;

std::string Finish(KOVA_HttpResponse response, uint32_t status,
                   const std::string& body) {
  response.status = status;
  response.contentType = "text/plain; charset=utf-8";
  response.body = body.data();
  response.bodyBytes = body.size();
  return kova::ResponseBytes(response);
}

// Decides what is answered; the place for your own code.
std::string MakeAnswer(const KOVA_HttpRequest& request, uint32_t* keepOpen) {
  KOVA_HttpResponse response = KOVA_StartResponse(&request, 1, keepOpen);
  if (KOVA_Equals(request.method, "POST")) {
    if (KOVA_GetBodyState(&request) == KOVA_BODY_MISSING) {
      return Finish(response, 408, "Send headers and body in one piece.\n");
    }
    return Finish(response, 200,
                  "You said: " + kova::FormField(request, "text") + "\n");
  }
  if (KOVA_Equals(request.method, "GET") || response.isForHead) {
    return Finish(response, 200,
                  "Hello from @NAME@, printer " +
                      kova::FormField(request, "printer") + "\n");
  }
  response.headers = "Allow: GET, HEAD, POST\r\n";
  return Finish(response, 405, "GET, HEAD and POST are understood.\n");
}

// A response is the bytes to be sent.
std::string* AsBytes(KOVA_Response response) {
  return static_cast<std::string*>(response);
}

}  // namespace

void WSIE_GetInterfaceVersionsSupported(uint32_t* versions, uint32_t capacity) {
  if (capacity > 0) versions[0] = KOVA_INTERFACE_VERSION;
}

void WSIE_SetKOVAServerRestartRoutine(KOVA_RestartRoutine* routine) {
  g_extension.restart = routine;
}

KOVA_Context WSIE_WebServerInitialize() { return &g_extension; }

// The server catches no exceptions: none may leave a function that it calls.
KOVA_Response WSIE_HandleServerRequest(KOVA_Context, const void* request,
                                       uint32_t requestLengthBytes,
                                       const wchar_t*, uint32_t,
                                       uint32_t* keepOpen) {
  try {
    KOVA_HttpRequest read;
    KOVA_ReadRequest(&read, request, requestLengthBytes);
    return new std::string(MakeAnswer(read, keepOpen));
  } catch (const std::exception&) {
    return nullptr;
  }
}

uint32_t WSIE_GetResponseLength(KOVA_Context, KOVA_Response response) {
  return static_cast<uint32_t>(AsBytes(response)->size());
}

int32_t WSIE_GetResponse(KOVA_Context, KOVA_Response response, void* buffer,
                         uint32_t bufferLengthBytes) {
  const std::string& bytes = *AsBytes(response);
  if (bufferLengthBytes < bytes.size()) return 0;
  std::memcpy(buffer, bytes.data(), bytes.size());
  return 1;
}

void WSIE_ReleaseResponse(KOVA_Context, KOVA_Response response) {
  delete AsBytes(response);
}
