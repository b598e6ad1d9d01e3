/* Calls an extension as the server does, on the machine where it is written:
 * with clang's fuzzer and AddressSanitizer, or request by request with any
 * compiler. Compile it together with the extension's sources:
 *
 *   clang -g -fsanitize=address,undefined,fuzzer -I PACKAGE/include \
 *     extension.c drive_extension.c -o drive
 *   ./drive                     looks for requests that break it
 *   ./drive request.http        tries this one
 *
 *   gcc -g -fsanitize=address,undefined -D KOVA_DRIVER_MAIN ...
 *   ./drive request.http...     tries these
 *
 * Request, address and answer lie in blocks of exactly their size, so that a
 * byte read or written beside them is reported. */
#define KOVA_BUILDING_EXTENSION
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kova/extension.h"

static void Restart(void) {}

static void* Copy(const void* bytes, size_t count) {
  void* const copy = malloc(count);
  if (copy == NULL) abort();
  return memcpy(copy, bytes, count);
}

static KOVA_Context Load(void) {
  uint32_t versions[10] = {0};
  WSIE_GetInterfaceVersionsSupported(versions, 10);
  WSIE_SetKOVAServerRestartRoutine(Restart);
  return WSIE_WebServerInitialize();
}

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  static KOVA_Context context = NULL;
  uint32_t keepOpen = 0;
  if (context == NULL) context = Load();
  if (context == NULL || count == 0) return 0;
  void* const request = Copy(bytes, count);
  wchar_t* const address = Copy(L"192.0.2.7:50123", 15 * sizeof(wchar_t));
  KOVA_Response const response = WSIE_HandleServerRequest(
      context, request, (uint32_t)count, address, 15, &keepOpen);
  free(request); /* valid during that call only */
  free(address);
  if (response == NULL) return 0;
  const uint32_t length = WSIE_GetResponseLength(context, response);
  char* const answer = malloc(length);
  if (length > 0 && WSIE_GetResponse(context, response, answer, length) != 0 &&
      (length < 12 || memcmp(answer, "HTTP/1.", 7) != 0)) {
    fprintf(stderr, "the answer is no HTTP response\n");
    abort();
  }
  WSIE_ReleaseResponse(context, response);
  free(answer);
  return 0;
}

#ifdef KOVA_DRIVER_MAIN
int main(int count, char** files) {
  static char bytes[1 << 20];
  for (int i = 1; i < count; ++i) {
    FILE* const file = fopen(files[i], "rb");
    if (file == NULL) return 1;
    LLVMFuzzerTestOneInput((const uint8_t*)bytes,
                           fread(bytes, 1, sizeof(bytes), file));
    fclose(file);
  }
  return 0;
}
#endif
