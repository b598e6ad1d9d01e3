#include "dispatch/request_dispatch.h"

#include <string>
#include <string_view>

#include "dispatch/web_server_interface.h"
#include "http/http_request.h"
#include "http/http_response.h"
#include "log/log_line.h"
#include "spooler/printers.h"

namespace kova {
namespace {

using tk::LogChannel;

constexpr const char* kMethod = "Network_ClientThread::ParseRequest";
constexpr uint32_t kBadRequest = 400;

// The calls that one request makes into an extension. Holds the response of
// the request and releases it, exactly once, on every road. An entry that the
// extension lacks counts as a failed call.
class ExtensionCall {
 public:
  ExtensionCall() = default;
  ~ExtensionCall() {
    if (m_response == nullptr) return;
    KOVA_ReleaseResponse* const entry = m_extension->ReleaseResponse();
    if (entry != nullptr) entry(m_extension->Context(), m_response);
  }

  ExtensionCall(const ExtensionCall&) = delete;
  ExtensionCall& operator=(const ExtensionCall&) = delete;

  // Hands the request over to `extension`, which must outlive the call. False:
  // it gave no response. Comes before the others, once.
  [[nodiscard]] bool Handle(const WebServerInterface& extension,
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

  // The length of the response in bytes; 0 means failure.
  [[nodiscard]] uint32_t ResponseLength() {
    KOVA_GetResponseLength* const entry = m_extension->GetResponseLength();
    return entry == nullptr ? 0 : entry(m_extension->Context(), m_response);
  }

  // Makes `out` exactly `lengthBytes` long and has the response copied into
  // it. False when the extension fails to, or when there is no memory for it.
  [[nodiscard]] bool CopyResponse(uint32_t lengthBytes, ByteBuffer& out) {
    // The length is the extension's claim: one that no memory can hold must
    // not cost the host its life.
    if (!out.TryResizeDiscarding(lengthBytes)) return false;
    KOVA_GetResponse* const entry = m_extension->GetResponse();
    return entry != nullptr && entry(m_extension->Context(), m_response,
                                     out.Data(), lengthBytes) != 0;
  }

 private:
  const WebServerInterface* m_extension = nullptr;
  KOVA_Response m_response = nullptr;
};

// Empty, and logged, when the request names no printer.
std::wstring FindPrinterName(const HTTPRequest& request,
                             const OString& clientAddress) {
  std::wstring printerName = request.GetFormValue(L"printer");
  if (!printerName.empty()) return printerName;

  const std::wstring shareName = request.GetFormValue(L"share");
  if (shareName.empty()) {
    if (LogLine line(LogChannel::DetailInfo, kMethod); line) {
      line << L"Error: Both the printer name and share name are empty. Unable "
              L"to route the request to a driver."
           << L" \nClient Address: " << clientAddress.WideView();
    }
    return printerName;
  }
  printerName = ShareNameToPrinterName(shareName);
  if (printerName.empty()) {
    if (LogLine line(LogChannel::DetailInfo, kMethod); line) {
      line << L"Error: The share name: " << shareName
           << L" could not be found. Unable to route the request to a driver."
           << L" \nClient Address: " << clientAddress.WideView();
    }
  }
  return printerName;
}

void LogFailedStep(const wchar_t* step, const std::wstring& printerName) {
  LogLine(LogChannel::Error, kMethod)
      << step << L" failed for: \"" << printerName << L"\"";
}

bool AnswerByExtension(const HTTPRequest& request, std::string_view bytes,
                       ExtensionCall& call, ByteBuffer& response,
                       uint32_t* keepOpen, const OString& clientAddress) {
  const std::wstring printerName = FindPrinterName(request, clientAddress);
  if (printerName.empty()) return false;

  const WebServerInterface* const extension =
      WebServerInterface::GetV3WebServerInterface(printerName);
  if (extension == nullptr) {
    LogFailedStep(L"GetV3WebServerInterface", printerName);
    return false;
  }
  if (!call.Handle(*extension, bytes, clientAddress.WideView(), keepOpen)) {
    LogFailedStep(L"WSIHandleServerRequest", printerName);
    return false;
  }
  const uint32_t lengthBytes = call.ResponseLength();
  if (lengthBytes == 0) {
    LogFailedStep(L"WSIGetResponseLength", printerName);
    return false;
  }
  if (!call.CopyResponse(lengthBytes, response)) {
    LogFailedStep(L"WSIGetResponse", printerName);
    return false;
  }
  return true;
}

// Deliberate: "/kova" and "/info" get the answer that every path gets.
void AnswerBadRequest(const HTTPRequest& request, ByteBuffer& response) {
  HTTPResponse answer;
  answer.SetHeader("Connection", request.GetHeader("Connection"));
  answer.SetStatus(kBadRequest);
  LogLine(LogChannel::DetailInfo, kMethod)
      << L"Responding with HTTP_BAD_REQUEST";
  answer.Serialize(response);
}

}  // namespace

int32_t DispatchRequest(const char* request, uint32_t lengthBytes,
                        ByteBuffer& response, uint32_t* keepOpen,
                        const OString& clientAddress) {
  HTTPRequest parsed;
  // Deliberate: the verdict is not looked at. Whatever fields the parse found
  // decide; a request that yields none ends in the 400 answer.
  (void)parsed.ParseInPlace(request, static_cast<int32_t>(lengthBytes), true);
  const std::string_view bytes(request, lengthBytes);
  ExtensionCall call;  // releases its response after either answer is made
  if (!AnswerByExtension(parsed, bytes, call, response, keepOpen,
                         clientAddress)) {
    AnswerBadRequest(parsed, response);
  }
  return 1;
}

}  // namespace kova
