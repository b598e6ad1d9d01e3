#include "http/request_scan.h"

#include "base/find_byte.h"

namespace kova {

namespace {

// The terminator whose first LF is at `lf`: it begins there or, where a CR
// comes first, one byte earlier. Length 0 when there is none.
ScannedPart TerminatorAt(std::string_view bytes, size_t from, size_t lf) {
  const std::string_view rest = bytes.substr(lf + 1, 2);
  const bool isBlankLine = rest == "\r\n";
  if (!isBlankLine && !rest.starts_with('\n')) return {};
  const size_t blankLine = isBlankLine ? 2 : 1;
  if (lf > from && bytes[lf - 1] == '\r') return {lf - 1, blankLine + 2};
  return {lf, blankLine + 1};
}

// The first LF, or the first zero byte where that comes before it.
size_t FindLineEnd(std::string_view bytes, size_t from) {
  return FindEither(bytes, from, '\n', '\0');
}

bool IsLineFeed(std::string_view bytes, size_t at) {
  return at < bytes.size() && bytes[at] == '\n';
}

}  // namespace

std::optional<ScannedPart> ScanRequestLine(std::string_view bytes) {
  const size_t lf = FindLineEnd(bytes, 0);
  if (!IsLineFeed(bytes, lf)) return std::nullopt;
  if (lf > 0 && bytes[lf - 1] == '\r') return ScannedPart{lf - 1, 2};
  return ScannedPart{lf, 1};
}

std::optional<ScannedPart> ScanHeaderEnd(std::string_view bytes, size_t from) {
  for (size_t lf = FindLineEnd(bytes, from); IsLineFeed(bytes, lf);
       lf = FindLineEnd(bytes, lf + 1)) {
    const ScannedPart found = TerminatorAt(bytes, from, lf);
    if (found.terminator != 0) return found;
  }
  return std::nullopt;
}

}  // namespace kova
