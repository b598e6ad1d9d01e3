#include "dispatch/extension_call.h"

namespace kova {

ExtensionCall::~ExtensionCall() {
  if (m_response == nullptr) return;
  KOVA_ReleaseResponse* const entry = m_extension->ReleaseResponse();
  if (entry != nullptr) entry(m_extension->Context(), m_response);
}

bool ExtensionCall::Handle(const WebServerInterface& extension,
                           std::string_view request,
                           std::wstring_view clientAddress,
                           uint32_t* keepOpen) {
  m_extension = &extension;
  KOVA_HandleServerRequest* const entry = m_extension->HandleServerRequest();
  if (entry == nullptr) return false;
  m_response =
      entry(m_extension->Context(), request.data(),
            static_cast<uint32_t>(request.size()), clientAddress.data(),
            static_cast<uint32_t>(clientAddress.size()), keepOpen);
  return m_response != nullptr;
}

uint32_t ExtensionCall::ResponseLength() {
  KOVA_GetResponseLength* const entry = m_extension->GetResponseLength();
  return entry == nullptr ? 0 : entry(m_extension->Context(), m_response);
}

bool ExtensionCall::CopyResponse(uint32_t lengthBytes, ByteBuffer& out) {
  // The length is the extension's claim: one that no memory can hold must not
  // cost the host its life.
  if (!out.TryResizeDiscarding(lengthBytes)) return false;
  KOVA_GetResponse* const entry = m_extension->GetResponse();
  return entry != nullptr && entry(m_extension->Context(), m_response,
                                   out.Data(), lengthBytes) != 0;
}

}  // namespace kova
