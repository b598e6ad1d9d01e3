// The fields of a request line.
#pragma once

#include <optional>
#include <string_view>

namespace kova {

// Parts of the line they were found in, still encoded.
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

}  // namespace kova
