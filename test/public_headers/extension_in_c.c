/* Whole: the extension header serves an author who writes C. */
#define KOVA_BUILDING_EXTENSION
#include "kova/extension.h"

static int g_state;

void WSIE_GetInterfaceVersionsSupported(uint32_t* versions, uint32_t capacity) {
  if (capacity > 0) versions[0] = KOVA_INTERFACE_VERSION;
}

void WSIE_SetKOVAServerRestartRoutine(KOVA_RestartRoutine* routine) {
  routine();
}

KOVA_Context WSIE_WebServerInitialize(void) { return &g_state; }

KOVA_Response WSIE_HandleServerRequest(KOVA_Context context,
                                       const void* request,
                                       uint32_t requestLengthBytes,
                                       const wchar_t* clientAddress,
                                       uint32_t clientAddressLength,
                                       uint32_t* keepOpen) {
  (void)request;
  (void)requestLengthBytes;
  (void)clientAddress;
  (void)clientAddressLength;
  *keepOpen = 0;
  return context;
}

uint32_t WSIE_GetResponseLength(KOVA_Context context, KOVA_Response response) {
  return context == response ? 1u : 0u;
}

int32_t WSIE_GetResponse(KOVA_Context context, KOVA_Response response,
                         void* buffer, uint32_t bufferLengthBytes) {
  (void)context;
  (void)response;
  if (bufferLengthBytes > 0) *(char*)buffer = 'H';
  return 1;
}

void WSIE_ReleaseResponse(KOVA_Context context, KOVA_Response response) {
  (void)context;
  (void)response;
}

KOVA_HandleServerRequest* const g_entryAsPointer = &WSIE_HandleServerRequest;
