#include "run/access_log.h"

#include <cstdio>

#include "common/file_path.h"
#include "common/plain_text.h"
#include "common/time_text.h"
#include "common/utf8.h"
#include "kova/extension_http.h"

namespace kova::ctl {
namespace {

constexpr uint32_t kBadRequest = 400;
constexpr size_t kTargetColumns = 48;

KOVA_HttpRequest Read(const SeenExchange& exchange) {
  KOVA_HttpRequest request;
  KOVA_ReadRequest(&request, exchange.request.data(),
                   static_cast<uint32_t>(exchange.request.size()));
  return request;
}

// The server answers by itself when the extension gives no answer.
uint32_t Status(const SeenExchange& exchange) {
  return exchange.responseBytes == 0 ? kBadRequest
                                     : StatusOf(exchange.response);
}

std::string_view Target(const KOVA_HttpRequest& request) {
  const std::string_view path = kova::View(request.path);
  const std::string_view query = kova::View(request.query);
  // The query lies behind the path in the same bytes.
  return query.empty()
             ? path
             : std::string_view(path.data(),
                                static_cast<size_t>(
                                    query.data() + query.size() - path.data()));
}

std::wstring Shown(std::string_view text) {
  std::wstring shown = HarmlessLine(ToWide(text));
  if (shown.size() <= kTargetColumns) return shown;
  return shown.substr(0, kTargetColumns - 3) + L"...";
}

std::wstring PrinterOf(const KOVA_HttpRequest& request) {
  const std::wstring printer = kova::FormFieldWide(request, "printer");
  if (!printer.empty()) return L"\"" + HarmlessLine(printer) + L"\"";
  const std::wstring share = kova::FormFieldWide(request, "share");
  return share.empty() ? L"-" : L"share \"" + HarmlessLine(share) + L"\"";
}

std::wstring Milliseconds(uint64_t microseconds) {
  const uint64_t tenths = (microseconds + 50) / 100;
  return std::to_wstring(tenths / 10) + L"." + std::to_wstring(tenths % 10);
}

SYSTEMTIME ToUtc(uint64_t fileTime) {
  const FILETIME time = {static_cast<DWORD>(fileTime),
                         static_cast<DWORD>(fileTime >> 32)};
  SYSTEMTIME utc{};
  ::FileTimeToSystemTime(&time, &utc);
  return utc;
}

std::wstring LocalClock(uint64_t fileTime) {
  const SYSTEMTIME utc = ToUtc(fileTime);
  SYSTEMTIME local{};
  ::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local);
  return ClockText(local);
}

// "[22/Nov/2026:05:14:36 +0000]"
std::string CombinedTime(uint64_t fileTime) {
  constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const SYSTEMTIME utc = ToUtc(fileTime);
  char text[40];
  std::snprintf(text, sizeof(text), "[%02u/%.3s/%04u:%02u:%02u:%02u +0000]",
                utc.wDay, kMonths + (utc.wMonth - size_t{1}) * 3, utc.wYear,
                utc.wHour, utc.wMinute, utc.wSecond);
  return text;
}

// In quotes; what would end them or the line as \xHH. "-" for nothing.
std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (code >= 0x20 && code < 0x7F && c != '"' && c != '\\') {
      quoted += c;
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof(escape), "\\x%02x", code);
    quoted += escape;
  }
  return text.empty() ? "\"-\"" : quoted + "\"";
}

std::string Host(const std::wstring& client) {
  const std::string address = ToUtf8(client.substr(0, client.rfind(L':')));
  return address.empty() ? "-" : address;
}

std::string RequestLine(const KOVA_HttpRequest& request) {
  if (request.method.length == 0) return {};
  return std::string(kova::View(request.method)) + " " +
         std::string(Target(request)) + " " +
         std::string(kova::View(request.version));
}

}  // namespace

std::wstring AccessLine(const SeenExchange& exchange, bool color) {
  const KOVA_HttpRequest request = Read(exchange);
  const uint32_t status = Status(exchange);
  std::wstring line = LocalClock(exchange.startTime) + L" ";
  line += exchange.client.empty() ? L"-" : HarmlessLine(exchange.client);
  line += L" ";
  if (exchange.request.empty()) {
    line += L"a request that no extension was given ";
  } else {
    line += Shown(kova::View(request.method)) + L" " + Shown(Target(request)) +
            L" ";
  }
  if (color) line += status < kBadRequest ? L"\x1b[32m" : L"\x1b[1;31m";
  line += std::to_wstring(status);
  if (color) line += L"\x1b[0m";
  if (exchange.responseBytes == 0) return line + L" by the server\n";
  return line + L" " + std::to_wstring(exchange.responseBytes) + L" B " +
         Milliseconds(exchange.microseconds) + L" ms " + PrinterOf(request) +
         L"\n";
}

std::string CombinedLine(const SeenExchange& exchange) {
  const KOVA_HttpRequest request = Read(exchange);
  const uint64_t body = exchange.responseBytes - HeadBytes(exchange.response);
  return Host(exchange.client) + " - - " + CombinedTime(exchange.startTime) +
         " " + Quoted(RequestLine(request)) + " " +
         std::to_string(Status(exchange)) + " " +
         (body == 0 ? "-" : std::to_string(body)) + " " +
         Quoted(kova::View(KOVA_Header(&request, "Referer"))) + " " +
         Quoted(kova::View(KOVA_Header(&request, "User-Agent"))) + "\n";
}

std::optional<Failure> AccessLogFile::Open(const std::wstring& path) {
  const std::wstring full = FullPath(path);
  m_file = UniqueFile(
      ::CreateFileW(full.c_str(), FILE_APPEND_DATA,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_ALWAYS, 0, nullptr));
  if (m_file.IsValid()) return std::nullopt;
  const DWORD error = ::GetLastError();
  return SystemFailure(ExitCode::kInternalError, L"cannot write to " + full,
                       error);
}

void AccessLogFile::Add(const SeenExchange& exchange) const {
  if (!m_file.IsValid()) return;
  const std::string line = CombinedLine(exchange);
  DWORD written = 0;
  // One call, so that the lines of several threads do not mix.
  ::WriteFile(m_file.Get(), line.data(), static_cast<DWORD>(line.size()),
              &written, nullptr);
}

}  // namespace kova::ctl
