#include "http/request_scan.h"

#include <bit>
#include <cstdint>

#include "base/byte_search.h"

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

// Looks for the terminator line by line, for LFs at or after `at`.
std::optional<ScannedPart> ScanLines(std::string_view bytes, size_t from,
                                     size_t at) {
  for (size_t lf = FindLineEnd(bytes, at); IsLineFeed(bytes, lf);
       lf = FindLineEnd(bytes, lf + 1)) {
    const ScannedPart found = TerminatorAt(bytes, from, lf);
    if (found.terminator != 0) return found;
  }
  return std::nullopt;
}

// All bits below the lowest one that is set; all where none is.
constexpr uint64_t BitsBefore(uint64_t bits) { return (bits & -bits) - 1; }

}  // namespace

std::optional<ScannedPart> ScanRequestLine(std::string_view bytes,
                                           size_t from) {
  const size_t lf = FindLineEnd(bytes, from);
  if (!IsLineFeed(bytes, lf)) return std::nullopt;
  if (lf > 0 && bytes[lf - 1] == '\r') return ScannedPart{lf - 1, 2};
  return ScannedPart{lf, 1};
}

// A block at a time, whatever the length of lines in it: a terminator has two
// LFs within three bytes, so that few blocks need a closer look.
std::optional<ScannedPart> ScanHeaderEnd(std::string_view bytes, size_t from) {
  // What follows these two shows in the next block only.
  constexpr uint64_t kLastTwo = uint64_t{3} << (ByteBlock::kBytes - 2);
  size_t at = from;
  for (; bytes.size() - at >= ByteBlock::kBytes; at += ByteBlock::kBytes) {
    const ByteBlock block(bytes.data() + at);
    const uint64_t zeros = block.HasZero() ? block.Equal('\0') : 0;
    const uint64_t lfs = block.Has('\n') ? block.Equal('\n') : 0;
    const uint64_t close = lfs & (lfs >> 1 | lfs >> 2 | kLastTwo);
    if ((close | zeros) == 0) continue;
    for (uint64_t left = BitsBefore(zeros) & close; left != 0;
         left &= left - 1) {
      const auto lf = at + static_cast<size_t>(std::countr_zero(left));
      const ScannedPart found = TerminatorAt(bytes, from, lf);
      if (found.terminator != 0) return found;
    }
    if (zeros != 0) return std::nullopt;
  }
  return ScanLines(bytes, from, at);
}

}  // namespace kova
