#include "http/http_request.h"

#include <algorithm>
#include <cstring>

#include "base/ascii.h"
#include "http/header_block.h"
#include "http/pieces.h"
#include "http/request_line.h"
#include "http/request_progress.h"
#include "http/request_scan.h"
#include "http/url_decode.h"

using kova::kBlanksAndLineEnds;

namespace {

OString TextOf(std::string_view bytes) {
  return OString(bytes.data(), bytes.size());
}

// What follows a request line.
struct Rest {
  std::string_view headerBlock;
  std::string_view body;
};

// Nothing where the headers have no end.
std::optional<Rest> SplitRest(std::string_view all,
                              const kova::ScannedPart& line) {
  const auto headers = kova::ScanHeaderEnd(all, line.end);
  if (!headers) return std::nullopt;
  return Rest{kova::HeaderBlock(all, line, *headers),
              all.substr(headers->Next())};
}

bool IsAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x80;
  });
}

// The narrow form alone decides where it can: comparing texts of two code
// pages converts both.
bool IsNamed(const OString& text, std::string_view name) {
  const std::string_view own = text.NarrowView();
  if (IsAscii(own) && IsAscii(name)) return kova::EqualsNoCase(own, name);
  return text.CompareNoCase(OString(name.data(), name.size())) == 0;
}

}  // namespace

bool HTTPRequest::IsComplete(const char* bytes, int32_t lengthBytes) {
  if (lengthBytes <= 0) return false;
  return kova::RequestProgress().IsComplete(
      {bytes, static_cast<size_t>(lengthBytes)});
}

bool HTTPRequest::Parse(const char* bytes, int32_t lengthBytes,
                        bool parseForm) {
  const auto body = Take(bytes, lengthBytes, parseForm);
  if (!body) return false;
  if (body->empty()) return true;
  m_bodyCopy.ResizeDiscarding(body->size());
  std::memcpy(m_bodyCopy.Data(), body->data(), body->size());
  m_body = {m_bodyCopy.Data(), body->size()};
  return true;
}

bool HTTPRequest::ParseLeavingBody(const char* bytes, int32_t lengthBytes,
                                   bool parseForm) {
  const auto body = Take(bytes, lengthBytes, parseForm);
  if (!body) return false;
  if (!body->empty()) m_body = *body;
  return true;
}

std::optional<std::string_view> HTTPRequest::Take(const char* bytes,
                                                  int32_t lengthBytes,
                                                  bool parseForm) {
  if (lengthBytes <= 0) return std::nullopt;
  const std::string_view all(bytes, static_cast<size_t>(lengthBytes));
  const auto line = kova::ScanRequestLine(all);
  if (!line || !ParseRequestLine(all.substr(0, line->end))) return std::nullopt;
  const auto rest = SplitRest(all, *line);
  if (!rest) return std::nullopt;
  if (!rest->headerBlock.empty()) TakeHeaderBlock(rest->headerBlock);
  const std::string_view body = rest->body;
  if (!kova::IsWholeBody(kova::AnnouncedBodyBytes(HeaderBlock()),
                         body.size())) {
    return std::nullopt;
  }
  // Deliberate: the exact value only, without parameters, qualifies.
  if (parseForm && !body.empty() &&
      FindHeader("Content-Type") == "application/x-www-form-urlencoded") {
    ParseFormData(body.data(), static_cast<int32_t>(body.size()));
  }
  // Deliberate: the body is all that came, even beyond Content-Length.
  return body;
}

bool HTTPRequest::ParseRequestLine(std::string_view line) {
  const auto found = kova::SplitRequestLine(line);
  if (!found) return false;
  m_method.Assign(found->method.data(), found->method.size());
  m_version.Assign(found->version.data(), found->version.size());
  if (found->query) {
    ParseFormData(found->query->data(),
                  static_cast<int32_t>(found->query->size()));
  }
  m_path = kova::UrlDecodeBytes(found->path);
  return kova::HasMethodAndPath(*found);
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
  kova::ForEachPiece(HeaderBlock(), '\n', [this](std::string_view piece) {
    m_headerLines.Append(TextOf(kova::Trim(piece, kBlanksAndLineEnds)));
    return true;
  });
  m_areLinesMade = true;
  return m_headerLines;
}

void HTTPRequest::ParseFormData(const char* bytes, int32_t lengthBytes) {
  if (lengthBytes < 0) return;
  const std::string_view all(bytes, static_cast<size_t>(lengthBytes));
  kova::ForEachPiece(all.substr(0, all.find('\0')), '&',
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

std::string_view HTTPRequest::FindHeader(std::string_view name) const {
  return kova::FindHeaderValue(HeaderBlock(), name);
}

OString HTTPRequest::GetHeader(const char* name) const {
  return TextOf(FindHeader(name));
}

OString HTTPRequest::GetFormValue(const char* name) const {
  for (int32_t i = 0; i < m_formNames.Count(); ++i) {
    if (!IsNamed(m_formNames[i], name)) continue;
    const std::string_view value = m_formValues[i].NarrowView();
    const std::string_view trimmed = kova::Trim(value, kBlanksAndLineEnds);
    if (trimmed.size() == value.size()) return m_formValues[i];
    return OString::FromUtf8(trimmed);
  }
  return {};
}
