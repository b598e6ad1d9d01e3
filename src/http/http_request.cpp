#include "http/http_request.h"

#include <cstring>

#include "base/ascii.h"
#include "base/find_byte.h"
#include "http/request_scan.h"
#include "http/url_decode.h"

using kova::kBlanks;
using kova::kBlanksAndLineEnds;

namespace {

OString TextOf(std::string_view bytes) {
  return OString(bytes.data(), bytes.size());
}

// Calls `take` for each piece of `text` between separators, empty ones too,
// until it returns false.
template <typename Take>
void ForEachPiece(std::string_view text, char separator, const Take& take) {
  size_t from = 0;
  size_t end = kova::FindByte(text, from, separator);
  while (end != text.size()) {
    if (!take(text.substr(from, end - from))) return;
    from = end + 1;
    end = kova::FindByte(text, from, separator);
  }
  take(text.substr(from));
}

}  // namespace

bool HTTPRequest::Parse(const char* bytes, int32_t lengthBytes,
                        bool parseForm) {
  if (lengthBytes <= 0) return false;
  const std::string_view all(bytes, static_cast<size_t>(lengthBytes));
  const auto line = kova::ScanRequestLine(all);
  if (!line || !ParseRequestLine(all.substr(0, line->end))) return false;
  const auto headers = kova::ScanHeaderEnd(all, line->end);
  if (!headers) return false;
  const size_t start = line->Next();
  if (headers->end > start) {
    TakeHeaderBlock(all.substr(start, headers->end - start));
  }
  return TakeBody(all.substr(headers->Next()), parseForm);
}

bool HTTPRequest::ParseRequestLine(std::string_view line) {
  line = kova::TrimStart(line, kBlanks);
  const size_t methodEnd = kova::FindBlank(line);
  if (methodEnd == line.npos) return false;
  m_method.Assign(line.data(), methodEnd);

  const std::string_view rest =
      kova::TrimStart(line.substr(methodEnd), kBlanks);
  const size_t pathEnd = kova::FindBlank(rest);
  std::string_view path = rest.substr(0, pathEnd);
  if (pathEnd == rest.npos) {
    path = kova::TrimEnd(path, kBlanksAndLineEnds);
    m_version = "HTTP/1.0";
  } else {
    // Deliberate: the version is neither checked nor cut at a further blank.
    const std::string_view version = kova::TrimEnd(
        kova::TrimStart(rest.substr(pathEnd), kBlanks), kBlanksAndLineEnds);
    m_version.Assign(version.data(), version.size());
  }

  const size_t query = path.find('?');
  if (query != path.npos) {
    const std::string_view fields = path.substr(query + 1);
    ParseFormData(fields.data(), static_cast<int32_t>(fields.size()));
    path = path.substr(0, query);
  }
  m_path = kova::UrlDecodeBytes(path);
  return !m_method.IsEmpty() && !m_path.IsEmpty();
}

void HTTPRequest::TakeHeaderBlock(std::string_view block) {
  m_headerBlock.ResizeDiscarding(block.size());
  std::memcpy(m_headerBlock.Data(), block.data(), block.size());
  m_areLinesMade = false;
}

std::string_view HTTPRequest::HeaderBlock() const {
  return {m_headerBlock.Data(), m_headerBlock.Size()};
}

const OStringArray& HTTPRequest::HeaderLines() const {
  if (m_areLinesMade) return m_headerLines;
  m_headerLines.SetSize(0);
  ForEachPiece(HeaderBlock(), '\n', [this](std::string_view piece) {
    m_headerLines.Append(TextOf(kova::Trim(piece, kBlanksAndLineEnds)));
    return true;
  });
  m_areLinesMade = true;
  return m_headerLines;
}

bool HTTPRequest::TakeBody(std::string_view bytes, bool parseForm) {
  // Deliberate: without any byte of a body Content-Length is not looked at; a
  // request whose headers arrive alone is processed at once.
  if (bytes.empty()) return true;
  const std::string_view declared = FindHeader("Content-Length");
  if (!declared.empty() &&
      static_cast<int32_t>(bytes.size()) < kova::LeadingDecimal(declared)) {
    return false;
  }
  // Deliberate: the body is all that came, even beyond Content-Length.
  m_body.ResizeDiscarding(bytes.size());
  std::memcpy(m_body.Data(), bytes.data(), bytes.size());
  // Deliberate: the exact value only, without parameters, qualifies.
  if (parseForm &&
      FindHeader("Content-Type") == "application/x-www-form-urlencoded") {
    ParseFormData(bytes.data(), static_cast<int32_t>(bytes.size()));
  }
  return true;
}

void HTTPRequest::ParseFormData(const char* bytes, int32_t lengthBytes) {
  if (lengthBytes < 0) return;
  const std::string_view all(bytes, static_cast<size_t>(lengthBytes));
  ForEachPiece(all.substr(0, all.find('\0')), '&',
               [this](std::string_view piece) {
                 TakeFormPair(piece);
                 return true;
               });
}

void HTTPRequest::TakeFormPair(std::string_view piece) {
  piece = kova::Trim(piece, kBlanksAndLineEnds);
  const size_t equals = piece.find('=');
  if (equals == piece.npos) return;
  m_formNames.Append(kova::UrlDecodeBytes(piece.substr(0, equals)));
  m_formValues.Append(kova::UrlDecodeBytes(piece.substr(equals + 1)));
}

// Deliberate: the name is not trimmed, so that a line with a blank before its
// colon answers to no usual name.
std::string_view HTTPRequest::FindHeader(std::string_view name) const {
  std::string_view value;
  ForEachPiece(HeaderBlock(), '\n', [&](std::string_view piece) {
    const std::string_view line = kova::Trim(piece, kBlanksAndLineEnds);
    const size_t colon = line.find(':');
    if (colon == line.npos) return true;
    if (!kova::EqualsNoCase(line.substr(0, colon), name)) return true;
    value = kova::Trim(line.substr(colon + 1), kBlanksAndLineEnds);
    return false;
  });
  return value;
}

OString HTTPRequest::GetHeader(const char* name) const {
  return TextOf(FindHeader(name));
}

OString HTTPRequest::GetFormValue(const char* name) const {
  const OString wanted(name);
  for (int32_t i = 0; i < m_formNames.Count(); ++i) {
    if (m_formNames[i].CompareNoCase(wanted) != 0) continue;
    const std::string_view value = m_formValues[i].NarrowView();
    const std::string_view trimmed = kova::Trim(value, kBlanksAndLineEnds);
    if (trimmed.size() == value.size()) return m_formValues[i];
    return OString::FromUtf8(trimmed);
  }
  return {};
}
