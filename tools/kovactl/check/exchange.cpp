#include "check/exchange.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "check/host_state.h"
#include "check/response_check.h"

namespace kova::ctl::check {
namespace {

constexpr std::wstring_view kAddress = L"192.0.2.7:50123";

// Fewer than this may be the answer's own.
constexpr size_t kFewestUnwritten = 4;
// More than this is no answer that anybody means to give.
constexpr uint32_t kGiantBytes = 0x40000000;

constexpr double kSlowMs = 1000;
// A stop of the server waits so long for a connection.
constexpr double kStopWaitsMs = 5000;

std::string_view AddressBytes(bool bare) {
  // The literal's terminator counts unless the address is to be bare.
  return {reinterpret_cast<const char*>(kAddress.data()),
          (kAddress.size() + (bare ? 0 : 1)) * sizeof(wchar_t)};
}

std::string At(size_t offset) {
  return "first at offset " + std::to_string(offset);
}

size_t UnwrittenTail(const std::string& bytes, char fill) {
  const size_t last = bytes.find_last_not_of(fill);
  return bytes.size() - (last == std::string::npos ? 0 : last + 1);
}

std::string Unwritten(size_t count, size_t lengthBytes) {
  return std::to_string(count) + " of " + std::to_string(lengthBytes) +
         " bytes were not written";
}

bool IsHttp10(const Request& request) {
  const std::string_view line(
      request.bytes.data(),
      std::min(request.bytes.find('\n'), request.bytes.size()));
  return line.ends_with(" HTTP/1.0\r");
}

std::string Described(const LateAccess& access) {
  const CodePlace place = PlaceOf(access.code);
  return std::string(access.what) +
         (access.isWrite ? ", written at " : ", read at ") +
         PlaceText(place.module, place.offset);
}

}  // namespace

size_t CountUnwritten(std::string_view first, std::string_view second) {
  const size_t length = std::min(first.size(), second.size());
  size_t fromStart = 0;
  size_t fromEnd = 0;
  for (size_t i = 0; i < length; ++i) {
    fromStart +=
        first[i] == GuardedArea::kUnwritten && second[i] == kOtherFill ? 1 : 0;
    fromEnd += first[first.size() - 1 - i] == GuardedArea::kUnwritten &&
                       second[second.size() - 1 - i] == kOtherFill
                   ? 1
                   : 0;
  }
  return std::max(fromStart, fromEnd);
}

template <typename Body>
void Exchange::Call(Callee callee, Body body) {
  const auto start = std::chrono::steady_clock::now();
  if (m_thread == 0) {
    CallWatched(m_state, m_thread, m_reporter, callee, body);
  } else {
    CallExtension(m_state, m_thread, callee, body);
  }
  const double tookMs = std::chrono::duration<double, std::milli>(
                            std::chrono::steady_clock::now() - start)
                            .count();
  m_answer.tookMs += tookMs;
  if (tookMs > m_answer.longestMs) {
    m_answer.longestMs = tookMs;
    m_answer.slowest = callee;
  }
  for (const LateAccess& access : GuardedArea::TakeLateAccesses()) {
    Report(Flaw::kArgumentKept, access.callee, Described(access));
  }
}

Answer Exchange::Send(const Request& request, uint32_t keepOpen) {
  Begin(request, keepOpen);
  while (Next()) {
  }
  return End();
}

Answer Exchange::SendTwice(const Request& request) {
  constexpr int kTries = 2;
  Answer second;
  size_t unwritten = 0;
  // An answer that is never the same may hold the bytes by chance.
  for (int i = 0; i < kTries; ++i) {
    m_fill = GuardedArea::kUnwritten;
    const Answer first = Send(request);
    m_fill = kOtherFill;
    second = Send(request);
    m_fill = GuardedArea::kUnwritten;
    CheckTime(first.tookMs < second.tookMs ? first : second);
    unwritten = CountUnwritten(first.bytes, second.bytes);
    if (unwritten > 0) continue;
    Judge(request, second);
    return second;
  }
  Report(Flaw::kCopyIncomplete, Callee::kCopy,
         Unwritten(unwritten, second.bytes.size()));
  return second;
}

void Exchange::CheckTime(const Answer& answer) {
  const std::string took =
      std::to_string(static_cast<int>(answer.tookMs)) + " ms";
  if (answer.tookMs > kStopWaitsMs) {
    Report(Flaw::kOutlastsStop, answer.slowest, took);
  } else if (answer.tookMs > kSlowMs) {
    Report(Flaw::kSlowAnswer, answer.slowest, took);
  }
}

void Exchange::SendAndRelease(const Request& request) {
  Begin(request);
  Handle();
  if (m_response != nullptr) Release();
}

void Exchange::SendAndMeasureTwice(const Request& request) {
  Begin(request);
  Handle();
  if (m_response == nullptr) return;
  const uint32_t once = Length();
  const uint32_t again = Length();
  if (again != once) {
    Report(Flaw::kChangingLength, Callee::kLength,
           "first " + std::to_string(once) + ", then " + std::to_string(again));
  }
  Release();
}

void Exchange::Begin(const Request& request, uint32_t keepOpen) {
  m_request = &request;
  m_next = Callee::kHandle;
  m_response = nullptr;
  m_lengthBytes = 0;
  m_answer = {};
  m_answer.keepOpen = keepOpen;
}

bool Exchange::Next() {
  switch (m_next) {
    case Callee::kHandle:
      Handle();
      m_next = m_response == nullptr ? Callee::kNone : Callee::kLength;
      break;
    case Callee::kLength:
      Measure();
      m_next = m_lengthBytes == 0 ? Callee::kRelease : Callee::kCopy;
      break;
    case Callee::kCopy:
      Copy();
      m_next = Callee::kRelease;
      break;
    case Callee::kRelease:
      Release();
      [[fallthrough]];
    default:
      m_next = Callee::kNone;
  }
  return m_next != Callee::kNone;
}

Answer Exchange::End() {
  if (m_response == nullptr && m_request->owes == Owes::kAnswer) {
    Report(Flaw::kNullResponse, Callee::kHandle);
  } else if (m_response == nullptr && m_request->owes == Owes::kReason) {
    Report(Flaw::kRefused, Callee::kHandle);
  }
  m_answer.hasResponse = m_response != nullptr;
  return std::move(m_answer);
}

void Exchange::Judge(const Request& request, Answer& answer) {
  if (answer.bytes.empty()) return;
  const ResponseVerdict verdict = CheckResponse(
      answer.bytes, {request.isHead, IsHttp10(request), answer.keepOpen != 0});
  for (const Finding& finding : verdict.findings) m_reporter.Report(finding);
  answer.status = verdict.status;
}

void Exchange::Handle() {
  m_reporter.CountRequest();
  const LentArea requestArea;
  const LentArea addressArea;
  const LentArea flagArea;
  const char* const bytes =
      requestArea->PlaceReadOnly(m_request->bytes, "the request");
  const char* const address = addressArea->PlaceReadOnly(
      AddressBytes(m_request->bareAddress), "the client's address");
  char* const flag = flagArea->Place(sizeof(uint32_t), "the keep-open flag");
  std::memcpy(flag, &m_answer.keepOpen, sizeof(uint32_t));
  Call(Callee::kHandle, [&] {
    m_response =
        m_extension.handle(m_extension.context, bytes,
                           static_cast<uint32_t>(m_request->bytes.size()),
                           reinterpret_cast<const wchar_t*>(address),
                           static_cast<uint32_t>(kAddress.size()),
                           reinterpret_cast<uint32_t*>(flag));
  });
  std::memcpy(&m_answer.keepOpen, flag, sizeof(uint32_t));
  CheckArguments(*requestArea, *addressArea, *flagArea);
}

void Exchange::CheckArguments(GuardedArea& requestArea,
                              GuardedArea& addressArea, GuardedArea& flagArea) {
  const Breach request = requestArea.TakeBreach();
  if (request.wrote || request.wrotePast) {
    Report(Flaw::kRequestWritten, Callee::kHandle, At(request.offset));
  }
  if (request.readPast) Report(Flaw::kRequestOverread, Callee::kHandle);
  const Breach address = addressArea.TakeBreach();
  if (address.wrote || address.wrotePast) {
    Report(Flaw::kAddressWritten, Callee::kHandle, At(address.offset));
  }
  if (address.readPast) Report(Flaw::kAddressOverread, Callee::kHandle);
  CheckFlag(flagArea);
}

void Exchange::CheckFlag(GuardedArea& area) {
  const Breach flag = area.TakeBreach();
  if (flag.wrotePast || flag.readPast) {
    Report(Flaw::kKeepOpenOverrun, Callee::kHandle);
  }
  if (flag.wroteFront) Report(Flaw::kCopyUnderrun, Callee::kHandle);
  if (m_answer.keepOpen > 1) {
    Report(Flaw::kKeepOpenValue, Callee::kHandle,
           "its value is " + std::to_string(m_answer.keepOpen));
  }
}

void Exchange::Measure() {
  m_lengthBytes = Length();
  if (m_lengthBytes == 0) Report(Flaw::kZeroLength, Callee::kLength);
  if (m_lengthBytes <= kGiantBytes) return;
  Report(Flaw::kGiantLength, Callee::kLength,
         std::to_string(m_lengthBytes) + " bytes; as a signed number that is " +
             std::to_string(static_cast<int32_t>(m_lengthBytes)));
  m_lengthBytes = 0;
}

uint32_t Exchange::Length() {
  uint32_t lengthBytes = 0;
  Call(Callee::kLength, [&] {
    lengthBytes = m_extension.length(m_extension.context, m_response);
  });
  return lengthBytes;
}

void Exchange::Copy() {
  const LentArea area;
  char* const buffer =
      area->Place(m_lengthBytes, "the buffer for the answer", m_fill);
  if (buffer == nullptr) {
    Report(
        Flaw::kGiantLength, Callee::kLength,
        "there is no memory for " + std::to_string(m_lengthBytes) + " bytes");
    return;
  }
  int32_t copied = 0;
  Call(Callee::kCopy, [&] {
    copied = m_extension.copy(m_extension.context, m_response, buffer,
                              m_lengthBytes);
  });
  CheckCopy(*area, buffer, copied);
}

void Exchange::CheckCopy(GuardedArea& area, const char* buffer,
                         int32_t copied) {
  const Breach breach = area.TakeBreach();
  if (breach.wrotePast || breach.readPast) {
    Report(Flaw::kCopyOverrun, Callee::kCopy,
           "the buffer has " + std::to_string(m_lengthBytes) + " bytes");
  }
  if (breach.wroteFront) Report(Flaw::kCopyUnderrun, Callee::kCopy);
  if (copied == 0) {
    Report(Flaw::kCopyFailed, Callee::kCopy);
    return;
  }
  m_answer.bytes.assign(buffer, m_lengthBytes);
  const size_t unwritten = UnwrittenTail(m_answer.bytes, m_fill);
  if (unwritten >= kFewestUnwritten) {
    Report(Flaw::kCopyIncomplete, Callee::kCopy,
           Unwritten(unwritten, m_lengthBytes));
    // Nothing more is to be said of such an answer.
    m_answer.bytes.clear();
  }
}

void Exchange::Release() {
  if (m_extension.release == nullptr) return;
  Call(Callee::kRelease,
       [&] { m_extension.release(m_extension.context, m_response); });
}

}  // namespace kova::ctl::check
