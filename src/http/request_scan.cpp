#include "http/request_scan.h"

#include <bit>
#include <cstdint>
#include <cstring>

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

// A mask with the top bit of each byte of `word` that is zero. Bytes above the
// lowest such byte may be marked too, the lowest one is right.
uint64_t ZeroBytes(uint64_t word) {
  constexpr uint64_t kOnes = 0x0101010101010101;
  constexpr uint64_t kTops = 0x8080808080808080;
  return (word - kOnes) & ~word & kTops;
}

// The index of the first LF or zero byte at or after `from`; the size of
// `bytes` when there is none. Looks at eight bytes a step: every receive scans
// the header block anew.
size_t FindLineEnd(std::string_view bytes, size_t from) {
  static_assert(std::endian::native == std::endian::little);
  constexpr uint64_t kLineFeeds = 0x0A0A0A0A0A0A0A0A;
  for (; bytes.size() - from >= sizeof(uint64_t); from += sizeof(uint64_t)) {
    uint64_t word = 0;
    std::memcpy(&word, bytes.data() + from, sizeof(word));
    const uint64_t found = ZeroBytes(word) | ZeroBytes(word ^ kLineFeeds);
    if (found != 0) return from + std::countr_zero(found) / 8u;
  }
  while (from < bytes.size() && bytes[from] != '\n' && bytes[from] != 0) {
    ++from;
  }
  return from;
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
