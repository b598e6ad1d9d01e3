// The calls that one request makes into an extension.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/byte_buffer.h"
#include "dispatch/web_server_interface.h"

namespace kova {

// Holds the response handle of one request and releases it, exactly once, on
// every road. An entry that the extension lacks counts as a failed call. Used
// on one thread; holds no lock.
class ExtensionCall {
 public:
  ExtensionCall() = default;
  ~ExtensionCall();

  ExtensionCall(const ExtensionCall&) = delete;
  ExtensionCall& operator=(const ExtensionCall&) = delete;

  // Hands the request over to `extension`, which must outlive the call. False:
  // it gave no response. Comes before the others, once.
  [[nodiscard]] bool Handle(const WebServerInterface& extension,
                            std::string_view request,
                            std::wstring_view clientAddress,
                            uint32_t* keepOpen);

  // The length of the response in bytes; 0 means failure.
  [[nodiscard]] uint32_t ResponseLength();

  // Makes `out` exactly `lengthBytes` long and has the response copied into
  // it. False when the extension fails to, or when there is no memory for it.
  [[nodiscard]] bool CopyResponse(uint32_t lengthBytes, ByteBuffer& out);

 private:
  const WebServerInterface* m_extension = nullptr;
  KOVA_Response m_response = nullptr;
};

}  // namespace kova
