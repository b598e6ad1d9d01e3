#include "dispatch/request_dispatch.h"

#include <string>
#include <string_view>

#include "dispatch/extension_call.h"
#include "dispatch/web_server_interface.h"
#include "http/http_request.h"
#include "http/http_response.h"
#include "log/log_line.h"
#include "spooler/share_names.h"

namespace kova {
namespace {

using tk::LogChannel;

constexpr const char* kMethod = "Network_ClientThread::ParseRequest";
constexpr uint32_t kBadRequest = 400;

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
