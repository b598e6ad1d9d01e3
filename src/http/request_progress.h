// How far the search for the end of one request has come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "http/request_syntax.h"

namespace kova {

// Remembers, from one receive to the next, where the request line and the
// headers end and what length they announce, so that no byte is searched again
// because more came: the work for a request is linear in its bytes, however
// they are cut. Belongs to one connection; not safe for use by two threads at
// once. Allocates nothing.
class RequestProgress {
 public:
  // Whether `received` holds a whole request with a valid request line; the
  // verdict is that of a parse from the first byte. Since the last Reset(),
  // `received` begins with the bytes of the call before; it may lie elsewhere.
  [[nodiscard]] bool IsComplete(std::string_view received);

  // What is received from now on is another request.
  void Reset() { *this = RequestProgress(); }

 private:
  enum class Stage { kRequestLine, kHeaders, kBody, kNever };

  void FindRequestLine(std::string_view received);
  void FindHeaderEnd(std::string_view received);
  void FindNothing(std::string_view received);
  [[nodiscard]] bool HasBody(std::string_view received);

  Stage m_stage = Stage::kRequestLine;
  size_t m_searched = 0;  // where the search of this stage goes on
  ScannedPart m_line;
  ScannedPart m_headers;
  std::optional<int32_t> m_announced;  // once some of the body is there
};

}  // namespace kova
