// Where the parts of a request lie in the bytes received so far.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace kova {

// A stretch of bytes and the line ending or terminator right behind it.
struct ScannedPart {
  size_t end = 0;         // index of the first byte of the terminator
  size_t terminator = 0;  // its length in bytes

  [[nodiscard]] size_t Next() const { return end + terminator; }
};

// The request line of `bytes`: up to the first LF, or the CR right before it.
// Nothing when there is no LF, or a zero byte before it. `from` is where the
// search begins: there is neither before it.
[[nodiscard]] std::optional<ScannedPart> ScanRequestLine(std::string_view bytes,
                                                         size_t from = 0);

// The header block's end: the first CR LF CR LF, LF CR LF, CR LF LF or LF LF
// at or after `from`, the longest where several begin at one place. `from` is
// the end of the request line, so that its own line ending counts, or a later
// place before which no terminator begins. Nothing when there is no terminator,
// or a zero byte between `from` and it.
[[nodiscard]] std::optional<ScannedPart> ScanHeaderEnd(std::string_view bytes,
                                                       size_t from);

}  // namespace kova
