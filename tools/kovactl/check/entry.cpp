#include "check/entry.h"

#include <iterator>

namespace kova::ctl::check {
namespace {

constexpr const char* kNames[] = {
    "no entry",
    "DllMain, while loading",
    "WSIE_GetInterfaceVersionsSupported",
    "WSIE_SetKOVAServerRestartRoutine",
    "WSIE_WebServerInitialize",
    "WSIE_HandleServerRequest",
    "WSIE_GetResponseLength",
    "WSIE_GetResponse",
    "WSIE_ReleaseResponse",
    "the end of the process",
    "a thread of the extension's own",
};

}  // namespace

const char* EntryName(Entry entry) {
  const auto index = static_cast<uint32_t>(entry);
  return index < std::size(kNames) ? kNames[index] : kNames[0];
}

}  // namespace kova::ctl::check
