/* Whole: the HTTP header serves an author who writes C. */
#include "kova/extension_http.h"

uint32_t AnswerInC(const void* request, uint32_t lengthBytes,
                   uint32_t* keepOpen, void* buffer, uint32_t bufferBytes) {
  KOVA_HttpRequest read;
  KOVA_HttpResponse response;
  char printer[64];
  wchar_t wide[64];
  KOVA_ReadRequest(&read, request, lengthBytes);
  response = KOVA_StartResponse(&read, 1, keepOpen);
  response.contentType = "text/plain";
  response.body = printer;
  response.bodyBytes =
      KOVA_FormField(&read, "printer", printer, sizeof(printer));
  if (response.bodyBytes != KOVA_FormFieldWide(&read, "printer", wide, 64) ||
      KOVA_GetBodyState(&read) != KOVA_BODY_COMPLETE ||
      KOVA_Equals(KOVA_Header(&read, "Host"), "")) {
    response.status = 400;
  }
  return KOVA_WriteResponse(&response, buffer, bufferBytes)
             ? KOVA_ResponseLength(&response)
             : 0;
}
