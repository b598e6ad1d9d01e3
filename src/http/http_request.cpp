#include "http/http_request.h"

#include <cstring>

#include "base/ascii.h"
#include "base/byte_search.h"
#include "http/request_progress.h"
#include "http/request_syntax.h"
#include "http/url_decode.h"

using kova::kBlanksAndLineEnds;

namespace {

OString TextOf(std::string_view bytes) {
  return OString(bytes.data(), bytes.size());
}

// A name and a value, still encoded.
struct FormField {
  std::string_view name;
  std::string_view value;
};

// Deliberate: blanks and ends count as the 16-bit text has them, in however
// many bytes they were encoded. Routing uses that form.
std::wstring Trimmed(std::wstring text) {
  constexpr wchar_t kTrimmed[] = L" \t\r\n";
  text.erase(text.find_last_not_of(kTrimmed) + 1);
  text.erase(0, text.find_first_not_of(kTrimmed));
  return text;
}

}  // namespace

bool HTTPRequest::IsComplete(const char* bytes, int32_t lengthBytes) {
  if (lengthBytes <= 0) return false;
  return kova::RequestProgress().IsComplete(
      {bytes, static_cast<size_t>(lengthBytes)});
}

bool HTTPRequest::Parse(const char* bytes, int32_t lengthBytes,
                        bool parseForm) {
  if (lengthBytes <= 0) return false;
  // Fields that this parse leaves alone lie in an earlier copy.
  kova::ByteBuffer& copy = m_copies.emplace_back();
  copy.ResizeDiscarding(static_cast<uint64_t>(lengthBytes));
  std::memcpy(copy.Data(), bytes, copy.Size());
  return ParseInPlace(copy.Data(), lengthBytes, parseForm);
}

bool HTTPRequest::ParseInPlace(const char* bytes, int32_t lengthBytes,
                               bool parseForm) {
  if (lengthBytes <= 0) return false;
  const std::string_view all(bytes, static_cast<size_t>(lengthBytes));
  const auto line = kova::ScanRequestLine(all);
  if (!line || !ParseRequestLine(all.substr(0, line->end))) return false;
  const auto headers = kova::ScanHeaderEnd(all, line->end);
  if (!headers) return false;
  const std::string_view block = kova::HeaderBlock(all, *line, *headers);
  if (!block.empty()) {
    m_headerBlock = block;
    m_areLinesMade = false;
  }
  const std::string_view body = all.substr(headers->Next());
  if (body.empty()) return true;
  if (!kova::IsWholeBody(kova::AnnouncedBodyBytes(m_headerBlock),
                         body.size())) {
    return false;
  }
  // Deliberate: the body is all that came, even beyond Content-Length.
  m_body = body;
  // Deliberate: the exact value only, without parameters, qualifies.
  if (parseForm && kova::FindHeaderValue(m_headerBlock, "Content-Type") ==
                       "application/x-www-form-urlencoded") {
    ParseFormData(body.data(), static_cast<int32_t>(body.size()));
  }
  return true;
}

bool HTTPRequest::ParseRequestLine(std::string_view line) {
  const auto found = kova::SplitRequestLine(line);
  if (!found) return false;
  m_line = *found;
  if (found->query) {
    ParseFormData(found->query->data(),
                  static_cast<int32_t>(found->query->size()));
  }
  return kova::HasMethodAndPath(*found);
}

void HTTPRequest::ParseFormData(const char* bytes, int32_t lengthBytes) {
  if (lengthBytes < 0) return;
  const std::string_view all(bytes, static_cast<size_t>(lengthBytes));
  m_forms.push_back(all.substr(0, all.find('\0')));
  m_areFieldsMade = false;
}

OString HTTPRequest::Method() const { return TextOf(m_line.method); }

OString HTTPRequest::Version() const { return TextOf(m_line.version); }

OString HTTPRequest::Path() const { return kova::UrlDecodeBytes(m_line.path); }

const OStringArray& HTTPRequest::HeaderLines() const {
  if (m_areLinesMade) return m_headerLines;
  m_headerLines.SetSize(0);
  kova::ForEachPiece(m_headerBlock, '\n', [this](std::string_view piece) {
    m_headerLines.Append(TextOf(kova::Trim(piece, kBlanksAndLineEnds)));
    return true;
  });
  m_areLinesMade = true;
  return m_headerLines;
}

OString HTTPRequest::GetHeader(const char* name) const {
  return TextOf(kova::FindHeaderValue(m_headerBlock, name));
}

// Calls `take` for each field until it returns false.
template <typename Take>
void HTTPRequest::ForEachFormField(const Take& take) const {
  for (const std::string_view form : m_forms) {
    bool isWanted = true;
    kova::ForEachPiece(form, '&', [&](std::string_view piece) {
      piece = kova::Trim(piece, kBlanksAndLineEnds);
      const size_t equals = kova::FindByte(piece, 0, '=');
      if (equals == piece.size()) return true;
      isWanted = take({piece.substr(0, equals), piece.substr(equals + 1)});
      return isWanted;
    });
    if (!isWanted) return;
  }
}

void HTTPRequest::MakeFormFields() const {
  if (m_areFieldsMade) return;
  m_formNames.SetSize(0);
  m_formValues.SetSize(0);
  ForEachFormField([this](const FormField& field) {
    m_formNames.Append(kova::UrlDecodeBytes(field.name));
    m_formValues.Append(kova::UrlDecodeBytes(field.value));
    return true;
  });
  m_areFieldsMade = true;
}

const OStringArray& HTTPRequest::FormNames() const {
  MakeFormFields();
  return m_formNames;
}

const OStringArray& HTTPRequest::FormValues() const {
  MakeFormFields();
  return m_formValues;
}

std::wstring HTTPRequest::GetFormValue(std::wstring_view name) const {
  std::wstring value;
  ForEachFormField([&](const FormField& field) {
    if (!kova::DecodesToName(field.name, name)) return true;
    value = Trimmed(kova::UrlDecodeToWide(field.value));
    return false;
  });
  return value;
}
