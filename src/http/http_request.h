// One HTTP request, parsed from the bytes received on a connection.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "base/byte_buffer.h"
#include "base/o_string.h"
#include "base/o_string_array.h"

// Dispatch reads the fields, whatever the verdict was. There is no incremental
// state here, each look begins at the first byte: see RequestProgress for the
// looks after every receive. Not safe for use by two threads at once. Where
// memory runs out std::bad_alloc passes through.
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
  // do. `bytes` is not kept.
  bool Parse(const char* bytes, int32_t lengthBytes, bool parseForm);

  // The same, but Body() lies in `bytes`, which must outlive its use.
  bool ParseLeavingBody(const char* bytes, int32_t lengthBytes, bool parseForm);

  // Takes method, path, version and the query string's form fields from one
  // line without its ending. False when it has no blank, or when the method
  // or the decoded path is empty.
  bool ParseRequestLine(std::string_view line);

  // Adds the name/value pairs of form-encoded bytes to the form fields. The
  // bytes end at their first zero.
  void ParseFormData(const char* bytes, int32_t lengthBytes);

  // The trimmed value of the first header line of that name, whatever its
  // case; empty text if there is none. A blank before the colon is part of a
  // line's name.
  [[nodiscard]] OString GetHeader(const char* name) const;

  // The trimmed value of the first form field of that name, whatever its
  // case; empty text if there is none.
  [[nodiscard]] OString GetFormValue(const char* name) const;

  [[nodiscard]] const OString& Method() const { return m_method; }
  // As given, unchecked; "HTTP/1.0" where the request line has none.
  [[nodiscard]] const OString& Version() const { return m_version; }
  // Decoded, without the query string.
  [[nodiscard]] const OString& Path() const { return m_path; }
  // Whole lines, trimmed: name, colon, value.
  [[nodiscard]] const OStringArray& HeaderLines() const;
  // Decoded names and values in parallel, the query string's first.
  [[nodiscard]] const OStringArray& FormNames() const { return m_formNames; }
  [[nodiscard]] const OStringArray& FormValues() const { return m_formValues; }
  // Everything after the header block; null when empty.
  [[nodiscard]] const char* Body() const { return m_body.data(); }
  [[nodiscard]] uint32_t BodyLength() const {
    return static_cast<uint32_t>(m_body.size());
  }

 private:
  [[nodiscard]] std::string_view FindHeader(std::string_view name) const;
  [[nodiscard]] std::string_view HeaderBlock() const;
  std::optional<std::string_view> Take(const char* bytes, int32_t lengthBytes,
                                       bool parseForm);
  void TakeHeaderBlock(std::string_view block);
  void TakeFormPair(std::string_view piece);

  OString m_method = "GET";
  OString m_version = "HTTP/1.1";
  OString m_path = "/";
  // The lines are made from the block when first asked for: dispatch asks for
  // single headers alone.
  mutable OStringArray m_headerLines;
  mutable bool m_areLinesMade = true;
  kova::ByteBuffer m_headerBlock;
  OStringArray m_formNames;
  OStringArray m_formValues;
  std::string_view m_body;
  kova::ByteBuffer m_bodyCopy;
};
