#include "http/http_response.h"

#include <cstring>
#include <string_view>
#include <vector>

#include "base/ascii.h"
#include "base/this_computer.h"
#include "http/http_date.h"
#include "http/reason_phrases.h"
#include "text/string_codec.h"

namespace {

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
  m_statusText = OString::Decimal(code) + kova::ReasonPhrase(code);
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
  SetHeader("Server", kova::ComputerName().c_str());
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
