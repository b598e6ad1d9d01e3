#include "admin/http_exchange.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "base/handles.h"
#include "common/exit_code.h"
#include "common/utf8.h"
#include "http/http_response.h"
#include "text/text_append.h"
// After the rest of Windows.
#include <winhttp.h>

namespace kova::ctl {
namespace {

struct InternetHandleTraits {
  using Value = HINTERNET;
  static Value None() { return nullptr; }
  static void Close(Value value) { ::WinHttpCloseHandle(value); }
};
using UniqueInternet = UniqueHandle<InternetHandleTraits>;

constexpr size_t kReadBytes = 65536;
constexpr DWORD kClosingMs = 100;

double NowMs() {
  LARGE_INTEGER frequency{};
  LARGE_INTEGER count{};
  ::QueryPerformanceFrequency(&frequency);
  ::QueryPerformanceCounter(&count);
  return 1000.0 * static_cast<double>(count.QuadPart) /
         static_cast<double>(frequency.QuadPart);
}

ExchangeEnd EndOf(DWORD error) {
  switch (error) {
    case ERROR_WINHTTP_CANNOT_CONNECT:
      return ExchangeEnd::kRefused;
    case ERROR_WINHTTP_TIMEOUT:
    case WSAETIMEDOUT:
      return ExchangeEnd::kTimedOut;
    case ERROR_WINHTTP_INVALID_SERVER_RESPONSE:
    case ERROR_WINHTTP_HEADER_NOT_FOUND:
      return ExchangeEnd::kNoHttp;
    default:
      return ExchangeEnd::kBroken;
  }
}

// One use of SendGet. Asynchronous, because the limits of a single call say
// nothing of all of them together: a server that sends a byte now and then
// never exceeds one.
class GetRequest {
 public:
  explicit GetRequest(uint32_t timeoutMs)
      : m_startMs(NowMs()),
        m_timeoutMs(timeoutMs),
        m_done(::CreateEventW(nullptr, FALSE, FALSE, nullptr)),
        m_closed(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        m_bytes(kReadBytes) {}

  Exchange Send(uint16_t port, const std::wstring& target) {
    Exchange exchange;
    if (Open(port, target) && SendHead() && Receive() && ReadHead(exchange) &&
        ReadBody(exchange)) {
      exchange.end = ExchangeEnd::kAnswered;
    } else {
      exchange.error = m_error;
      exchange.end = EndOf(m_error);
    }
    exchange.totalMs = SinceStart();
    const std::lock_guard held(m_mutex);
    exchange.connectMs = m_connectMs;
    exchange.firstByteMs = m_firstByteMs;
    return exchange;
  }

  // Whether no call back can come any more, so that this may be destroyed.
  [[nodiscard]] bool Close() {
    if (!m_request.IsValid()) return true;
    m_request.Reset();
    return ::WaitForSingleObject(m_closed.Get(), kClosingMs) == WAIT_OBJECT_0;
  }

 private:
  [[nodiscard]] double SinceStart() const { return NowMs() - m_startMs; }

  [[nodiscard]] DWORD LeftMs() const {
    return static_cast<DWORD>(std::max(m_timeoutMs - SinceStart(), 0.0));
  }

  // For `return Worked(call)`: keeps the error of a call that failed.
  bool Worked(BOOL result) {
    if (result == FALSE) m_error = ::GetLastError();
    return result != FALSE;
  }

  // The same for a call that is only begun: waits for its end.
  bool Completed(BOOL begun) {
    if (!Worked(begun)) return false;
    if (::WaitForSingleObject(m_done.Get(), LeftMs()) != WAIT_OBJECT_0) {
      m_error = ERROR_WINHTTP_TIMEOUT;
      return false;
    }
    const std::lock_guard held(m_mutex);
    m_error = m_result;
    return m_error == ERROR_SUCCESS;
  }

  bool SetOption(HINTERNET handle, DWORD option, DWORD value) {
    return Worked(::WinHttpSetOption(handle, option, &value, sizeof(value)));
  }

  // Lets a call that was given up end by itself some time.
  bool LimitTime() {
    const int limit = static_cast<int>(m_timeoutMs);
    return Worked(::WinHttpSetTimeouts(m_request.Get(), limit, limit, limit,
                                       limit)) &&
           SetOption(m_request.Get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT,
                     m_timeoutMs);
  }

  bool Open(uint16_t port, const std::wstring& target) {
    m_session.Reset(::WinHttpOpen(L"kovactl", WINHTTP_ACCESS_TYPE_NO_PROXY,
                                  nullptr, nullptr, WINHTTP_FLAG_ASYNC));
    if (!Worked(m_session.IsValid())) return false;
    m_connection.Reset(
        ::WinHttpConnect(m_session.Get(), L"127.0.0.1", port, 0));
    if (!Worked(m_connection.IsValid())) return false;
    m_request.Reset(::WinHttpOpenRequest(m_connection.Get(), L"GET",
                                         target.c_str(), nullptr, nullptr,
                                         nullptr, WINHTTP_FLAG_ESCAPE_DISABLE));
    if (!Worked(m_request.IsValid())) return false;
    auto context = reinterpret_cast<DWORD_PTR>(this);
    return Worked(::WinHttpSetOption(m_request.Get(),
                                     WINHTTP_OPTION_CONTEXT_VALUE, &context,
                                     sizeof(context))) &&
           Worked(::WinHttpSetStatusCallback(
                      m_request.Get(), &OnStatus,
                      WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS,
                      0) != WINHTTP_INVALID_STATUS_CALLBACK) &&
           LimitTime() &&
           SetOption(m_request.Get(), WINHTTP_OPTION_CONNECT_RETRIES, 1) &&
           SetOption(m_request.Get(), WINHTTP_OPTION_DISABLE_FEATURE,
                     WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_REDIRECTS |
                         WINHTTP_DISABLE_AUTHENTICATION |
                         WINHTTP_DISABLE_KEEP_ALIVE);
  }

  bool SendHead() {
    return Completed(::WinHttpSendRequest(m_request.Get(), nullptr, 0, nullptr,
                                          0, 0,
                                          reinterpret_cast<DWORD_PTR>(this)));
  }

  bool Receive() {
    if (!Completed(::WinHttpReceiveResponse(m_request.Get(), nullptr))) {
      return false;
    }
    NoteOnce(m_firstByteMs);
    return true;
  }

  bool ReadHead(Exchange& exchange) {
    DWORD size = sizeof(exchange.status);
    if (!Worked(::WinHttpQueryHeaders(
            m_request.Get(),
            WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr,
            &exchange.status, &size, nullptr))) {
      return false;
    }
    size = 0;
    ::WinHttpQueryHeaders(m_request.Get(), WINHTTP_QUERY_RAW_HEADERS_CRLF,
                          nullptr, nullptr, &size, nullptr);
    std::wstring headers(size / sizeof(wchar_t), L'\0');
    if (!Worked(::WinHttpQueryHeaders(m_request.Get(),
                                      WINHTTP_QUERY_RAW_HEADERS_CRLF, nullptr,
                                      headers.data(), &size, nullptr))) {
      return false;
    }
    headers.resize(size / sizeof(wchar_t));
    exchange.headers = std::move(headers);
    return true;
  }

  // Reads what is there and no more: a read that wants more may wait for it
  // longer than it should.
  bool ReadBody(Exchange& exchange) {
    while (Completed(::WinHttpQueryDataAvailable(m_request.Get(), nullptr))) {
      const DWORD count =
          std::min(TakeCount(), static_cast<DWORD>(m_bytes.size()));
      if (count == 0 || !Completed(::WinHttpReadData(
                            m_request.Get(), m_bytes.data(), count, nullptr))) {
        break;
      }
      exchange.bodyBytes += TakeCount();
    }
    return m_error == ERROR_SUCCESS && IsWhole(exchange);
  }

  DWORD TakeCount() {
    const std::lock_guard held(m_mutex);
    return m_count;
  }

  // An early end of the connection need not be an error of the last read.
  bool IsWhole(const Exchange& exchange) {
    DWORD promised = 0;
    DWORD size = sizeof(promised);
    const bool isCut =
        ::WinHttpQueryHeaders(
            m_request.Get(),
            WINHTTP_QUERY_CONTENT_LENGTH | WINHTTP_QUERY_FLAG_NUMBER, nullptr,
            &promised, &size, nullptr) &&
        exchange.status != HTTP_STATUS_NO_CONTENT &&
        exchange.status != HTTP_STATUS_NOT_MODIFIED &&
        exchange.bodyBytes < promised;
    if (isCut) m_error = ERROR_WINHTTP_CONNECTION_ERROR;
    return !isCut;
  }

  void NoteOnce(std::optional<double>& when) {
    const std::lock_guard held(m_mutex);
    if (!when) when = SinceStart();
  }

  void Complete(DWORD result, DWORD count) {
    {
      const std::lock_guard held(m_mutex);
      m_result = result;
      m_count = count;
    }
    ::SetEvent(m_done.Get());
  }

  void OnEvent(DWORD status, const void* information, DWORD length) {
    switch (status) {
      case WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER:
        return NoteOnce(m_connectMs);
      case WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED:
        if (information == nullptr ||
            *static_cast<const DWORD*>(information) == 0) {
          return;
        }
        return NoteOnce(m_firstByteMs);
      case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
      case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
        return Complete(ERROR_SUCCESS, 0);
      case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
        return Complete(ERROR_SUCCESS, *static_cast<const DWORD*>(information));
      case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
        return Complete(ERROR_SUCCESS, length);
      case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
        return Complete(
            static_cast<const WINHTTP_ASYNC_RESULT*>(information)->dwError, 0);
      case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
        ::SetEvent(m_closed.Get());
        return;
      default:
        return;
    }
  }

  // Called on any thread, until the closing was told.
  static void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status,
                                void* information, DWORD length) {
    auto* const self = reinterpret_cast<GetRequest*>(context);
    if (self != nullptr) self->OnEvent(status, information, length);
  }

  const double m_startMs;
  const uint32_t m_timeoutMs;
  const UniqueKernelHandle m_done;    // set at the end of each call
  const UniqueKernelHandle m_closed;  // the request is gone
  std::vector<char> m_bytes;
  DWORD m_error = ERROR_SUCCESS;
  std::mutex m_mutex;
  // Under the mutex:
  DWORD m_result = ERROR_SUCCESS;
  DWORD m_count = 0;
  std::optional<double> m_connectMs;
  std::optional<double> m_firstByteMs;
  UniqueInternet m_session;
  UniqueInternet m_connection;
  UniqueInternet m_request;
};

// Lines of the server's own answer that have another value each time.
constexpr std::wstring_view kVarying[] = {L"Connection:", L"Date:", L"Server:"};

// That answer, as the server makes it.
std::wstring OwnAnswer() {
  HTTPResponse answer;
  answer.SetHeader("Connection", "");
  answer.SetStatus(HTTP_STATUS_BAD_REQUEST);
  ByteBuffer bytes;
  static_cast<void>(answer.Serialize(bytes));
  return ToWide({bytes.Data(), bytes.Size()});
}

std::vector<std::wstring_view> LinesOf(std::wstring_view text) {
  std::vector<std::wstring_view> lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find(L"\r\n"), text.size());
    if (end > 0) lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 2, text.size()));
  }
  return lines;
}

bool Fits(std::wstring_view line, std::wstring_view expected) {
  for (const std::wstring_view name : kVarying) {
    if (expected.starts_with(name)) return line.starts_with(name);
  }
  return line == expected;
}

bool StaysAsItIs(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
         (c >= 'a' && c <= 'z') || c == '-' || c == '.' || c == '_' || c == '~';
}

}  // namespace

Exchange SendGet(uint16_t port, const std::wstring& target,
                 uint32_t timeoutMs) {
  auto request = std::make_unique<GetRequest>(timeoutMs);
  Exchange exchange = request->Send(port, target);
  // What may still be called back stays, until the process ends.
  if (!request->Close()) static_cast<void>(request.release());
  return exchange;
}

bool IsServersOwnAnswer(const Exchange& exchange) {
  if (exchange.end != ExchangeEnd::kAnswered || exchange.bodyBytes != 0) {
    return false;
  }
  const std::wstring own = OwnAnswer();
  return std::ranges::equal(LinesOf(exchange.headers), LinesOf(own), &Fits);
}

std::wstring EndText(const Exchange& exchange, uint16_t port,
                     uint32_t timeoutMs) {
  std::wstring place = L"port " + std::to_wstring(port);
  switch (exchange.end) {
    case ExchangeEnd::kAnswered:
      return place + L" answered";
    case ExchangeEnd::kRefused:
      return L"nothing listens on " + place;
    case ExchangeEnd::kTimedOut:
      return place + L" gave no whole answer within " +
             std::to_wstring((timeoutMs + 999) / 1000) + L" s";
    case ExchangeEnd::kNoHttp:
      return place + L" gave no HTTP answer";
    case ExchangeEnd::kBroken:
      return place + L" ended the connection without a whole answer (" +
             SystemErrorText(exchange.error) + L")";
  }
  return place;
}

std::wstring PercentEncoded(const std::wstring& text) {
  std::wstring encoded;
  for (const char c : ToUtf8(text)) {
    if (StaysAsItIs(c)) {
      encoded += static_cast<wchar_t>(c);
      continue;
    }
    encoded += L'%';
    AppendHex(encoded, static_cast<unsigned char>(c), 2, HexDigits::kUpper);
  }
  return encoded;
}

}  // namespace kova::ctl
