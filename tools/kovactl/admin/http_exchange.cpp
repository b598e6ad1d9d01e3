#include "admin/http_exchange.h"

#include <algorithm>
#include <iterator>
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

// One use of SendGet.
class GetRequest {
 public:
  explicit GetRequest(uint32_t timeoutMs)
      : m_startMs(NowMs()), m_timeoutMs(timeoutMs) {}

  Exchange Send(uint16_t port, const std::wstring& target) {
    if (Open(port, target) && SendHead() && Receive() && ReadHead() &&
        ReadBody()) {
      m_exchange.end = ExchangeEnd::kAnswered;
      m_exchange.error = ERROR_SUCCESS;
    } else {
      m_exchange.end = EndOf(m_exchange.error);
    }
    m_exchange.totalMs = SinceStart();
    return std::move(m_exchange);
  }

 private:
  [[nodiscard]] double SinceStart() const { return NowMs() - m_startMs; }

  // For `return Worked(call)`: keeps the error of a call that failed.
  bool Worked(BOOL result) {
    if (result == FALSE) m_exchange.error = ::GetLastError();
    return result != FALSE;
  }

  // Every call may take what the ones before have left; never 0, which means
  // without a limit.
  bool LimitTime(HINTERNET handle) {
    const double left = m_timeoutMs - SinceStart();
    if (left < 1) {
      m_exchange.error = ERROR_WINHTTP_TIMEOUT;
      return false;
    }
    const int limit = static_cast<int>(left);
    return Worked(::WinHttpSetTimeouts(handle, limit, limit, limit, limit)) &&
           SetOption(handle, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT,
                     static_cast<DWORD>(limit));
  }

  bool SetOption(HINTERNET handle, DWORD option, DWORD value) {
    return Worked(::WinHttpSetOption(handle, option, &value, sizeof(value)));
  }

  bool Open(uint16_t port, const std::wstring& target) {
    m_session.Reset(::WinHttpOpen(L"kovactl", WINHTTP_ACCESS_TYPE_NO_PROXY,
                                  nullptr, nullptr, 0));
    if (!Worked(m_session.IsValid())) return false;
    m_connection.Reset(
        ::WinHttpConnect(m_session.Get(), L"127.0.0.1", port, 0));
    if (!Worked(m_connection.IsValid())) return false;
    m_request.Reset(::WinHttpOpenRequest(m_connection.Get(), L"GET",
                                         target.c_str(), nullptr, nullptr,
                                         nullptr, WINHTTP_FLAG_ESCAPE_DISABLE));
    if (!Worked(m_request.IsValid())) return false;
    ::WinHttpSetStatusCallback(m_request.Get(), &OnStatus,
                               WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS, 0);
    return SetOption(m_request.Get(), WINHTTP_OPTION_CONNECT_RETRIES, 1) &&
           SetOption(m_request.Get(), WINHTTP_OPTION_DISABLE_FEATURE,
                     WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_REDIRECTS |
                         WINHTTP_DISABLE_AUTHENTICATION |
                         WINHTTP_DISABLE_KEEP_ALIVE);
  }

  bool SendHead() {
    return LimitTime(m_request.Get()) &&
           Worked(::WinHttpSendRequest(m_request.Get(), nullptr, 0, nullptr, 0,
                                       0, reinterpret_cast<DWORD_PTR>(this)));
  }

  bool Receive() {
    if (!LimitTime(m_request.Get()) ||
        !Worked(::WinHttpReceiveResponse(m_request.Get(), nullptr))) {
      return false;
    }
    NoteFirstByte();
    return true;
  }

  bool ReadHead() {
    DWORD size = sizeof(m_exchange.status);
    if (!Worked(::WinHttpQueryHeaders(
            m_request.Get(),
            WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr,
            &m_exchange.status, &size, nullptr))) {
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
    m_exchange.headers = std::move(headers);
    return true;
  }

  bool ReadBody() {
    std::vector<char> bytes(kReadBytes);
    DWORD count = 0;
    do {
      if (!LimitTime(m_request.Get()) ||
          !Worked(::WinHttpReadData(m_request.Get(), bytes.data(),
                                    static_cast<DWORD>(bytes.size()),
                                    &count))) {
        return false;
      }
      m_exchange.bodyBytes += count;
    } while (count > 0);
    return IsWhole();
  }

  // An early end of the connection need not be an error of the last read.
  bool IsWhole() {
    DWORD promised = 0;
    DWORD size = sizeof(promised);
    const bool isCut =
        ::WinHttpQueryHeaders(
            m_request.Get(),
            WINHTTP_QUERY_CONTENT_LENGTH | WINHTTP_QUERY_FLAG_NUMBER, nullptr,
            &promised, &size, nullptr) &&
        m_exchange.status != HTTP_STATUS_NO_CONTENT &&
        m_exchange.status != HTTP_STATUS_NOT_MODIFIED &&
        m_exchange.bodyBytes < promised;
    if (isCut) m_exchange.error = ERROR_WINHTTP_CONNECTION_ERROR;
    return !isCut;
  }

  void NoteFirstByte() {
    if (!m_exchange.firstByteMs) m_exchange.firstByteMs = SinceStart();
  }

  // Called on the thread of the call in progress.
  static void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status,
                                void* information, DWORD) {
    auto* const self = reinterpret_cast<GetRequest*>(context);
    if (self == nullptr) return;
    if (status == WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER) {
      self->m_exchange.connectMs = self->SinceStart();
    } else if (status == WINHTTP_CALLBACK_STATUS_RESPONSE_RECEIVED &&
               information != nullptr &&
               *static_cast<const DWORD*>(information) > 0) {
      self->NoteFirstByte();
    }
  }

  const double m_startMs;
  const uint32_t m_timeoutMs;
  Exchange m_exchange;
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
  return GetRequest(timeoutMs).Send(port, target);
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
