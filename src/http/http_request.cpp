#include "http/http_request.h"

#include <cstring>

#include "base/ascii.h"
#include "http/request_scan.h"
#include "http/url_decode.h"

using kova::kBlanks;
using kova::kBlanksAndLineEnds;

namespace {

OString TextOf(std::string_view bytes) {
  return OString(bytes.data(), bytes.size());
}

// Calls `take` for each piece of `text` between separators, empty ones too.
template <typename Take>
void ForEachPiece(std::string_view text, char separator, const Take& take) {
  for (size_t end = text.find(separator); end != text.npos;
       end = text.find(separator)) {
    take(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  take(text);
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
    SplitHeaderLines(all.substr(start, headers->end - start));
  }
  return TakeBody(all.substr(headers->Next()), parseForm);
}

bool HTTPRequest::ParseRequestLine(std::string_view line) {
  line = kova::TrimStart(line, kBlanks);
  const size_t methodEnd = line.find_first_of(kBlanks);
  if (methodEnd == line.npos) return false;
  m_method.Assign(line.data(), methodEnd);

  const std::string_view rest =
      kova::TrimStart(line.substr(methodEnd), kBlanks);
  const size_t pathEnd = rest.find_first_of(kBlanks);
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

void HTTPRequest::SplitHeaderLines(std::string_view block) {
  m_headerLines.SetSize(0);
  ForEachPiece(block, '\n', [this](std::string_view piece) {
    m_headerLines.Append(TextOf(kova::Trim(piece, kBlanksAndLineEnds)));
  });
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
               [this](std::string_view piece) { TakeFormPair(piece); });
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
  for (int32_t i = 0; i < m_headerLines.Count(); ++i) {
    const std::string_view line = m_headerLines[i].NarrowView();
    const size_t colon = line.find(':');
    if (colon == line.npos) continue;
    if (kova::EqualsNoCase(line.substr(0, colon), name)) {
      return kova::Trim(line.substr(colon + 1), kBlanksAndLineEnds);
    }
  }
  return {};
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
