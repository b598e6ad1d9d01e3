// One HTTP response under construction.
#pragma once

#include <cstdint>

#include "base/byte_buffer.h"
#include "text/o_string.h"
#include "text/o_string_array.h"

// Collects status, header lines and body, and turns them into the bytes to
// send. Nothing is validated or escaped. Owns all it holds. Not safe for use
// by two threads at once. Where memory runs out std::bad_alloc passes through.
class HTTPResponse {
 public:
  // Status 200, with the lines "Content-Type: application/octet-stream" and
  // "Cache-Control: no-cache".
  HTTPResponse();

  HTTPResponse(const HTTPResponse&) = delete;
  HTTPResponse& operator=(const HTTPResponse&) = delete;

  // Sets the code and its reason phrase; a code without one says "OK".
  void SetStatus(uint32_t code);

  // Sets the line name + ": " + value: in place of the first line of that
  // name, whatever its case, or else as the last line.
  void SetHeader(const OString& name, const OString& value);

  // Copies `lengthBytes` bytes (at most 4 GiB less one) as the body.
  void SetBody(const char* bytes, uint32_t lengthBytes);

  // Sets Date, Server (KnownComputerName()), Accept-Ranges and, where the body
  // is not empty, Content-Length. A response with an empty body has no such
  // line, whoever set it.
  void AddStandardHeaders();

  // Adds the standard headers and makes `out` exactly the response's bytes.
  // Header text that is not ASCII goes out in the ANSI code page. Always
  // true. May be called again.
  bool Serialize(kova::ByteBuffer& out);

  [[nodiscard]] uint32_t Status() const { return m_status; }
  // The code and the phrase, e.g. "404 Not Found".
  [[nodiscard]] const OString& StatusText() const { return m_statusText; }
  [[nodiscard]] const OStringArray& HeaderLines() const {
    return m_headerLines;
  }

 private:
  // The index of the first line of that name; the count where there is none.
  [[nodiscard]] int32_t FindHeader(const OString& name) const;
  // Takes the first line of that name away.
  void RemoveHeader(const OString& name);

  const OString m_version = "HTTP/1.1";
  uint32_t m_status = 0;
  OString m_statusText;
  OStringArray m_headerLines;
  kova::ByteBuffer m_body;
};
