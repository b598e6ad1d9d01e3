// How a request is written: where its parts end, and what they say.
#pragma once

#include <cstddef>
#include <cstdint>
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

// The fields of a request line: parts of it, still encoded.
struct RequestLine {
  std::string_view method;
  // Without the query string.
  std::string_view path;
  // What follows the path's first "?".
  std::optional<std::string_view> query;
  // As given, unchecked; "HTTP/1.0" where the line has none.
  std::string_view version;
};

// Takes a line apart that has no line ending. Nothing where it has no blank.
[[nodiscard]] std::optional<RequestLine> SplitRequestLine(
    std::string_view line);

// Whether neither method nor decoded path is empty.
[[nodiscard]] bool HasMethodAndPath(const RequestLine& line);

// What lies between the request line and the headers' end; may be empty.
[[nodiscard]] std::string_view HeaderBlock(std::string_view bytes,
                                           const ScannedPart& line,
                                           const ScannedPart& headers);

// The trimmed value of the first line of `block` that has the name `name`,
// whatever its case; empty where there is none. Lines end at LFs and are
// trimmed; a blank before the colon is part of a line's name.
[[nodiscard]] std::string_view FindHeaderValue(std::string_view block,
                                               std::string_view name);

// The length that the header block announces for the body; where it announces
// none, the least number there is.
[[nodiscard]] int32_t AnnouncedBodyBytes(std::string_view block);

// Whether `availableBytes` of a body are all that was announced. No byte at
// all is enough, whatever that is.
[[nodiscard]] bool IsWholeBody(int32_t announcedBytes, size_t availableBytes);

}  // namespace kova
