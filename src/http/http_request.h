// One HTTP request, parsed from the bytes received on a connection.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/byte_buffer.h"
#include "http/request_syntax.h"
#include "text/o_string.h"
#include "text/o_string_array.h"

// Dispatch reads the fields, whatever the verdict was. There is no incremental
// state here, each look begins at the first byte: see RequestProgress for the
// looks after every receive. Every field lies in the bytes it was parsed from,
// and its text is made when it is asked for: a request takes no memory for what
// nobody reads. Not safe for use by two threads at once. Where memory runs out
// std::bad_alloc passes through.
class HTTPRequest {
 public:
  // GET / HTTP/1.1 without headers, form fields and body.
  HTTPRequest() = default;

  HTTPRequest(const HTTPRequest&) = delete;
  HTTPRequest& operator=(const HTTPRequest&) = delete;

  // Whether the `lengthBytes` bytes hold a whole request with a valid request
  // line; malformed and not yet complete are the same answer. Copies nothing
  // and allocates nothing.
  [[nodiscard]] static bool IsComplete(const char* bytes, int32_t lengthBytes);

  // Gives the same verdict and fills the fields as it goes, so that a false
  // result may leave some of them filled. `parseForm` says whether a
  // form-encoded body becomes form fields; those of the query string always
  // do. Keeps a copy of the bytes.
  bool Parse(const char* bytes, int32_t lengthBytes, bool parseForm);

  // The same without a copy: `bytes` must outlive the use of the fields.
  bool ParseInPlace(const char* bytes, int32_t lengthBytes, bool parseForm);

  // Takes method, path, version and the query string's form fields from one
  // line without its ending, which must outlive their use. False when it has
  // no blank, or when the method or the decoded path is empty.
  bool ParseRequestLine(std::string_view line);

  // Adds the name/value pairs of form-encoded bytes, which must outlive their
  // use, to the form fields. The bytes end at their first zero.
  void ParseFormData(const char* bytes, int32_t lengthBytes);

  // The trimmed value of the first header line of that name, whatever its
  // case; empty text if there is none. A blank before the colon is part of a
  // line's name.
  [[nodiscard]] OString GetHeader(const char* name) const;

  // The value of the first form field of that name, whatever its case;
  // trimmed as the 16-bit text it is, and empty if there is none.
  [[nodiscard]] std::wstring GetFormValue(std::wstring_view name) const;

  [[nodiscard]] OString Method() const;
  // As given, unchecked; "HTTP/1.0" where the request line has none.
  [[nodiscard]] OString Version() const;
  // Decoded, without the query string.
  [[nodiscard]] OString Path() const;
  // Whole lines, trimmed: name, colon, value.
  [[nodiscard]] const OStringArray& HeaderLines() const;
  // Decoded names and values in parallel, the query string's first.
  [[nodiscard]] const OStringArray& FormNames() const;
  [[nodiscard]] const OStringArray& FormValues() const;
  // Everything after the header block; null when empty.
  [[nodiscard]] const char* Body() const { return m_body.data(); }
  [[nodiscard]] uint32_t BodyLength() const {
    return static_cast<uint32_t>(m_body.size());
  }

 private:
  template <typename Take>
  void ForEachFormField(const Take& take) const;
  void MakeFormFields() const;

  kova::RequestLine m_line = {"GET", "/", {}, "HTTP/1.1"};
  std::string_view m_headerBlock;
  std::vector<std::string_view> m_forms;  // encoded, the query string first
  std::string_view m_body;
  std::vector<kova::ByteBuffer> m_copies;

  // Made when first asked for.
  mutable OStringArray m_headerLines;
  mutable OStringArray m_formNames;
  mutable OStringArray m_formValues;
  mutable bool m_areLinesMade = true;
  mutable bool m_areFieldsMade = true;
};
