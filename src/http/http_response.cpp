#include "http/http_response.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "base/this_computer.h"
#include "text/date_text.h"
#include "text/string_codec.h"

namespace {

// The phrases of RFC 2616 section 6.1.1.
struct Reason {
  uint32_t code;
  const char* phrase;
};

constexpr Reason kReasons[] = {
    {100, " Continue"},
    {101, " Switching Protocols"},
    {201, " Created"},
    {202, " Accepted"},
    {203, " Non-Authoritative Information"},
    {204, " No Content"},
    {205, " Reset Content"},
    {206, " Partial Content"},
    {300, " Multiple Choices"},
    {301, " Moved Permanently"},
    {302, " Found"},
    {303, " See Other"},
    {304, " Not Modified"},
    {305, " Use Proxy"},
    {307, " Temporary Redirect"},
    {400, " Bad Request"},
    {401, " Unauthorized"},
    {402, " Payment Required"},
    {403, " Forbidden"},
    {404, " Not Found"},
    {405, " Method Not Allowed"},
    {406, " Not Acceptable"},
    {407, " Proxy Authentication Required"},
    {408, " Request Time-out"},
    {409, " Conflict"},
    {410, " Gone"},
    {411, " Length Required"},
    {412, " Precondition Failed"},
    {413, " Request Entity Too Large"},
    {414, " Request-URI Too Large"},
    {415, " Unsupported Media Type"},
    {416, " Requested range not satisfiable"},
    {417, " Expectation Failed"},
    {500, " Internal Server Error"},
    {501, " Not Implemented"},
    {502, " Bad Gateway"},
    {503, " Service Unavailable"},
    {504, " Gateway Time-out"},
    {505, " HTTP Version not supported"},
};

// With the blank before it; that of 200 for a code without one.
const char* ReasonPhrase(uint32_t code) {
  const auto* const found = std::ranges::find(kReasons, code, &Reason::code);
  return found == std::end(kReasons) ? " OK" : found->phrase;
}

constexpr std::string_view kLineEnd = "\r\n";

// Every line has a colon: SetHeader() made it.
template <typename Unit>
bool IsLineOf(std::basic_string_view<Unit> line,
              std::basic_string_view<Unit> name) {
  return kova::EqualsNoCase(line.substr(0, line.find(Unit{':'})), name);
}

bool IsLineOf(const OString& line, const OString& name) {
  if (line.PrefersWide() || name.PrefersWide()) {
    return IsLineOf(line.WideView(), name.WideView());
  }
  return IsLineOf(line.NarrowView(), name.NarrowView());
}

// Writes pieces one behind the other into a block of the size counted before.
class Writer {
 public:
  explicit Writer(char* at) : m_at(at) {}

  void Write(std::string_view bytes) {
    if (bytes.empty()) return;
    std::memcpy(m_at, bytes.data(), bytes.size());
    m_at += bytes.size();
  }

 private:
  char* m_at;
};

}  // namespace

HTTPResponse::HTTPResponse() {
  SetStatus(200);
  SetHeader("Content-Type", "application/octet-stream");
  SetHeader("Cache-Control", "no-cache");
}

void HTTPResponse::SetStatus(uint32_t code) {
  m_status = code;
  m_statusText = OString::Decimal(code) + ReasonPhrase(code);
}

int32_t HTTPResponse::FindHeader(const OString& name) const {
  int32_t at = 0;
  while (at < m_headerLines.Count() && !IsLineOf(m_headerLines[at], name)) {
    ++at;
  }
  return at;
}

void HTTPResponse::SetHeader(const OString& name, const OString& value) {
  OString line = name + ": " + value;
  line.SetCodePage(kova::kCodePageAnsi);
  m_headerLines.SetAt(FindHeader(name), std::move(line));
}

void HTTPResponse::RemoveHeader(const OString& name) {
  const int32_t at = FindHeader(name);
  const int32_t last = m_headerLines.Count() - 1;
  if (at > last) return;
  for (int32_t i = at; i < last; ++i) {
    m_headerLines[i] = std::move(m_headerLines[i + 1]);
  }
  m_headerLines.SetSize(last);
}

void HTTPResponse::SetBody(const char* bytes, uint32_t lengthBytes) {
  m_body.ResizeDiscarding(lengthBytes);
  if (lengthBytes != 0) std::memcpy(m_body.Data(), bytes, lengthBytes);
}

void HTTPResponse::AddStandardHeaders() {
  SetHeader("Date", kova::HttpDate(kova::CurrentTimeSeconds()));
  SetHeader("Server", kova::KnownComputerName().c_str());
  SetHeader("Accept-Ranges", "None");
  if (m_body.Size() == 0) {
    // Deliberate: the caller's own goes, too.
    RemoveHeader("Content-Length");
  } else {
    SetHeader("Content-Length",
              OString::Decimal(static_cast<uint32_t>(m_body.Size())));
  }
}

bool HTTPResponse::Serialize(kova::ByteBuffer& out) {
  AddStandardHeaders();
  const OString statusLine = m_version + " " + m_statusText;
  // Asked for once: a conversion that the system refuses gives an empty text,
  // and may give the whole one when asked again.
  std::vector<std::string_view> lines = {statusLine.NarrowView()};
  for (int32_t i = 0; i < m_headerLines.Count(); ++i) {
    lines.push_back(m_headerLines[i].NarrowView());
  }
  uint64_t size = kLineEnd.size() + m_body.Size();
  for (const std::string_view line : lines)
    size += line.size() + kLineEnd.size();
  out.ResizeDiscarding(size);

  Writer writer(out.Data());
  for (const std::string_view line : lines) {
    writer.Write(line);
    writer.Write(kLineEnd);
  }
  writer.Write(kLineEnd);
  writer.Write({m_body.Data(), m_body.Size()});
  return true;
}
