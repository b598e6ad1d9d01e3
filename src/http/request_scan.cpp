#include "http/request_scan.h"

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

bool HasZero(std::string_view bytes) { return bytes.find('\0') != bytes.npos; }

}  // namespace

std::optional<ScannedPart> ScanRequestLine(std::string_view bytes) {
  const size_t lf = bytes.find('\n');
  if (lf == bytes.npos || HasZero(bytes.substr(0, lf))) return std::nullopt;
  if (lf > 0 && bytes[lf - 1] == '\r') return ScannedPart{lf - 1, 2};
  return ScannedPart{lf, 1};
}

std::optional<ScannedPart> ScanHeaderEnd(std::string_view bytes, size_t from) {
  for (size_t lf = bytes.find('\n', from); lf != bytes.npos;
       lf = bytes.find('\n', lf + 1)) {
    const ScannedPart found = TerminatorAt(bytes, from, lf);
    if (found.terminator == 0) continue;
    if (HasZero(bytes.substr(from, found.end - from))) return std::nullopt;
    return found;
  }
  return std::nullopt;
}

}  // namespace kova
