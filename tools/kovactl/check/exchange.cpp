#include "check/exchange.h"

#include <cstring>

#include "check/extension_call.h"
#include "check/response_check.h"

namespace kova::ctl::check {
namespace {

constexpr std::wstring_view kAddress = L"192.0.2.7:50123";

// Fewer than this may be the answer's own.
constexpr size_t kFewestUnwritten = 4;

std::string_view AddressBytes(bool bare) {
  // The literal's terminator counts unless the address is to be bare.
  return {reinterpret_cast<const char*>(kAddress.data()),
          (kAddress.size() + (bare ? 0 : 1)) * sizeof(wchar_t)};
}

std::string At(size_t offset) {
  return "first at offset " + std::to_string(offset);
}

size_t UnwrittenTail(const std::string& bytes) {
  const size_t last = bytes.find_last_not_of(GuardedArea::kUnwritten);
  return bytes.size() - (last == std::string::npos ? 0 : last + 1);
}

}  // namespace

Answer Exchange::Send(const Request& request, uint32_t keepOpen) {
  Answer answer;
  answer.keepOpen = keepOpen;
  KOVA_Response const response = Handle(request, answer);
  if (response == nullptr) {
    if (request.owes == Owes::kAnswer) {
      Report(Flaw::kNullResponse, Callee::kHandle);
    } else if (request.owes == Owes::kReason) {
      Report(Flaw::kRefused, Callee::kHandle);
    }
    return answer;
  }
  answer.hasResponse = true;
  Fetch(response, answer);
  Release(response);
  if (answer.bytes.empty()) return answer;
  ResponseVerdict verdict =
      CheckResponse(answer.bytes, {request.isHead, answer.keepOpen != 0});
  for (const Finding& finding : verdict.findings) m_reporter.Report(finding);
  answer.status = verdict.status;
  return answer;
}

void Exchange::SendAndRelease(const Request& request) {
  Answer answer;
  KOVA_Response const response = Handle(request, answer);
  if (response != nullptr) Release(response);
}

KOVA_Response Exchange::Handle(const Request& request, Answer& answer) {
  m_reporter.CountRequest();
  const char* const bytes = m_request.PlaceReadOnly(request.bytes);
  const char* const address =
      m_address.PlaceReadOnly(AddressBytes(request.bareAddress));
  char* const flag = m_flag.Place(sizeof(uint32_t));
  std::memcpy(flag, &answer.keepOpen, sizeof(uint32_t));
  KOVA_Response response = nullptr;
  Call(Callee::kHandle, [&] {
    response = m_extension.handle(m_extension.context, bytes,
                                  static_cast<uint32_t>(request.bytes.size()),
                                  reinterpret_cast<const wchar_t*>(address),
                                  static_cast<uint32_t>(kAddress.size()),
                                  reinterpret_cast<uint32_t*>(flag));
  });
  CheckArguments();
  std::memcpy(&answer.keepOpen, flag, sizeof(uint32_t));
  CheckFlag(answer);
  return response;
}

void Exchange::CheckArguments() {
  const Breach request = m_request.TakeBreach();
  if (request.wrote || request.wrotePast) {
    Report(Flaw::kRequestWritten, Callee::kHandle, At(request.offset));
  }
  if (request.readPast) Report(Flaw::kRequestOverread, Callee::kHandle);
  const Breach address = m_address.TakeBreach();
  if (address.wrote || address.wrotePast) {
    Report(Flaw::kAddressWritten, Callee::kHandle, At(address.offset));
  }
  if (address.readPast) Report(Flaw::kAddressOverread, Callee::kHandle);
}

void Exchange::CheckFlag(Answer& answer) {
  const Breach flag = m_flag.TakeBreach();
  if (flag.wrotePast || flag.readPast) {
    Report(Flaw::kKeepOpenOverrun, Callee::kHandle);
  }
  if (flag.wroteFront) Report(Flaw::kCopyUnderrun, Callee::kHandle);
  if (answer.keepOpen > 1) {
    Report(Flaw::kKeepOpenValue, Callee::kHandle,
           "its value is " + std::to_string(answer.keepOpen));
  }
}

void Exchange::Fetch(KOVA_Response response, Answer& answer) {
  const uint32_t lengthBytes = Length(response);
  if (lengthBytes == 0) {
    Report(Flaw::kZeroLength, Callee::kLength);
    return;
  }
  const uint32_t again = Length(response);
  if (again != lengthBytes) {
    Report(Flaw::kChangingLength, Callee::kLength,
           "first " + std::to_string(lengthBytes) + ", then " +
               std::to_string(again));
  }
  Copy(response, lengthBytes, answer);
}

uint32_t Exchange::Length(KOVA_Response response) {
  uint32_t lengthBytes = 0;
  Call(Callee::kLength, [&] {
    lengthBytes = m_extension.length(m_extension.context, response);
  });
  return lengthBytes;
}

void Exchange::Copy(KOVA_Response response, uint32_t lengthBytes,
                    Answer& answer) {
  char* const buffer = m_buffer.Place(lengthBytes);
  if (buffer == nullptr) {
    Report(Flaw::kCopyFailed, Callee::kLength,
           "there is no memory for a length of " + std::to_string(lengthBytes));
    return;
  }
  int32_t copied = 0;
  Call(Callee::kCopy, [&] {
    copied =
        m_extension.copy(m_extension.context, response, buffer, lengthBytes);
  });
  CheckCopy(buffer, lengthBytes, copied, answer);
}

void Exchange::CheckCopy(char* buffer, uint32_t lengthBytes, int32_t copied,
                         Answer& answer) {
  const Breach breach = m_buffer.TakeBreach();
  if (breach.wrotePast || breach.readPast) {
    Report(Flaw::kCopyOverrun, Callee::kCopy,
           "the buffer has " + std::to_string(lengthBytes) + " bytes");
  }
  if (breach.wroteFront) Report(Flaw::kCopyUnderrun, Callee::kCopy);
  if (copied == 0) {
    Report(Flaw::kCopyFailed, Callee::kCopy);
    return;
  }
  answer.bytes.assign(buffer, lengthBytes);
  const size_t unwritten = UnwrittenTail(answer.bytes);
  if (unwritten >= kFewestUnwritten) {
    Report(Flaw::kCopyIncomplete, Callee::kCopy,
           std::to_string(unwritten) + " of " + std::to_string(lengthBytes) +
               " bytes were not written");
  }
}

void Exchange::Release(KOVA_Response response) {
  if (m_extension.release == nullptr) return;
  Call(Callee::kRelease,
       [&] { m_extension.release(m_extension.context, response); });
}

}  // namespace kova::ctl::check
