/* The network extension @NAME@: what a printer answers to HTTP requests. */
#define KOVA_BUILDING_EXTENSION
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kova/extension.h"
#include "kova/extension_http.h"

/* One answer, from WSIE_HandleServerRequest to WSIE_ReleaseResponse. */
typedef struct Answer {
  KOVA_HttpResponse http;
  char body[1024];
} Answer;

/* What all requests share. They come on several threads at once: see that
 * what you add here is safe for that. */
typedef struct Extension {
  KOVA_RestartRoutine* restart;
} Extension;

static Extension g_extension;

static void Fill(Answer* answer, uint32_t status, const char* words) {
  answer->http.status = status;
  snprintf(answer->body, sizeof(answer->body), "%s\n", words);
}

/* Decides what is answered; the place for your own code. */
static void MakeAnswer(Answer* answer, const KOVA_HttpRequest* request) {
  char printer[256];
  char text[256];
  char words[600];
  if (KOVA_Equals(request->method, "POST")) {
    if (KOVA_GetBodyState(request) == KOVA_BODY_MISSING) {
      Fill(answer, 408, "Send headers and body in one piece.");
      return;
    }
    KOVA_FormField(request, "text", text, sizeof(text));
    snprintf(words, sizeof(words), "You said: %s", text);
    Fill(answer, 200, words);
  } else if (KOVA_Equals(request->method, "GET") || answer->http.isForHead) {
    KOVA_FormField(request, "printer", printer, sizeof(printer));
    snprintf(words, sizeof(words), "Hello from @NAME@, printer %s", printer);
    Fill(answer, 200, words);
  } else {
    answer->http.headers = "Allow: GET, HEAD, POST\r\n";
    Fill(answer, 405, "GET, HEAD and POST are understood.");
  }
}

void WSIE_GetInterfaceVersionsSupported(uint32_t* versions, uint32_t capacity) {
  if (capacity > 0) versions[0] = KOVA_INTERFACE_VERSION;
}

void WSIE_SetKOVAServerRestartRoutine(KOVA_RestartRoutine* routine) {
  g_extension.restart = routine;
}

KOVA_Context WSIE_WebServerInitialize(void) { return &g_extension; }

KOVA_Response WSIE_HandleServerRequest(KOVA_Context context,
                                       const void* request,
                                       uint32_t requestLengthBytes,
                                       const wchar_t* clientAddress,
                                       uint32_t clientAddressLength,
                                       uint32_t* keepOpen) {
  KOVA_HttpRequest read;
  Answer* const answer = malloc(sizeof(*answer));
  (void)context, (void)clientAddress, (void)clientAddressLength;
  if (answer == NULL) return NULL;
  KOVA_ReadRequest(&read, request, requestLengthBytes);
  answer->http = KOVA_StartResponse(&read, 1, keepOpen);
  answer->http.contentType = "text/plain; charset=utf-8";
  MakeAnswer(answer, &read);
  answer->http.body = answer->body;
  answer->http.bodyBytes = strlen(answer->body);
  return answer;
}

uint32_t WSIE_GetResponseLength(KOVA_Context context, KOVA_Response response) {
  (void)context;
  return KOVA_ResponseLength(&((Answer*)response)->http);
}

int32_t WSIE_GetResponse(KOVA_Context context, KOVA_Response response,
                         void* buffer, uint32_t bufferLengthBytes) {
  (void)context;
  return KOVA_WriteResponse(&((Answer*)response)->http, buffer,
                            bufferLengthBytes);
}

void WSIE_ReleaseResponse(KOVA_Context context, KOVA_Response response) {
  (void)context;
  free(response);
}
