// Whole: the extension header serves C++ code that only uses its types.
#include "kova/extension.h"

#include <type_traits>

static_assert(KOVA_INTERFACE_VERSION == 1);
static_assert(std::is_same_v<KOVA_Context, void*>);
static_assert(std::is_same_v<KOVA_Response, void*>);
static_assert(std::is_same_v<KOVA_RestartRoutine, void()>);
static_assert(std::is_same_v<KOVA_GetInterfaceVersionsSupported,
                             void(uint32_t*, uint32_t)>);
static_assert(std::is_same_v<KOVA_SetKOVAServerRestartRoutine,
                             void(KOVA_RestartRoutine*)>);
static_assert(std::is_same_v<KOVA_WebServerInitialize, void*()>);
static_assert(std::is_same_v<KOVA_HandleServerRequest,
                             void*(void*, const void*, uint32_t, const wchar_t*,
                                   uint32_t, uint32_t*)>);
static_assert(std::is_same_v<KOVA_GetResponseLength, uint32_t(void*, void*)>);
static_assert(
    std::is_same_v<KOVA_GetResponse, int32_t(void*, void*, void*, uint32_t)>);
static_assert(std::is_same_v<KOVA_ReleaseResponse, void(void*, void*)>);
