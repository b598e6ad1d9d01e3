#include "http/request_syntax.h"

#include <bit>
#include <limits>

#include "base/ascii.h"
#include "base/byte_search.h"
#include "http/url_decode.h"

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

// The part before the first blank or tab, and what begins with that one; all
// of `text` and nothing where there is none.
struct Halves {
  std::string_view before;
  std::string_view from;
};

Halves SplitAtBlank(std::string_view text) {
  const size_t blank = FindEither(text, 0, ' ', '\t');
  return {text.substr(0, blank), text.substr(blank)};
}

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

std::optional<RequestLine> SplitRequestLine(std::string_view line) {
  const Halves method = SplitAtBlank(TrimStart(line, kBlanks));
  if (method.from.empty()) return std::nullopt;
  RequestLine found;
  found.method = method.before;
  const Halves path = SplitAtBlank(TrimStart(method.from, kBlanks));
  if (path.from.empty()) {
    found.path = TrimEnd(path.before, kBlanksAndLineEnds);
    found.version = "HTTP/1.0";
  } else {
    found.path = path.before;
    // Deliberate: the version is neither checked nor cut at a further blank.
    found.version = TrimEnd(TrimStart(path.from, kBlanks), kBlanksAndLineEnds);
  }
  const size_t query = FindByte(found.path, 0, '?');
  if (query != found.path.size()) {
    found.query = found.path.substr(query + 1);
    found.path = found.path.substr(0, query);
  }
  return found;
}

bool HasMethodAndPath(const RequestLine& line) {
  return !line.method.empty() && DecodesToText(line.path);
}

std::string_view HeaderBlock(std::string_view bytes, const ScannedPart& line,
                             const ScannedPart& headers) {
  const size_t start = line.Next();
  if (headers.end <= start) return {};
  return bytes.substr(start, headers.end - start);
}

// Deliberate: the name is not trimmed, so that a line with a blank before its
// colon answers to no usual name.
std::string_view FindHeaderValue(std::string_view block,
                                 std::string_view name) {
  std::string_view value;
  ForEachPiece(block, '\n', [&](std::string_view piece) {
    const std::string_view line = Trim(piece, kBlanksAndLineEnds);
    const size_t colon = FindByte(line, 0, ':');
    if (colon == line.size()) return true;
    if (!EqualsNoCase(line.substr(0, colon), name)) return true;
    value = Trim(line.substr(colon + 1), kBlanksAndLineEnds);
    return false;
  });
  return value;
}

int32_t AnnouncedBodyBytes(std::string_view block) {
  const std::string_view value = FindHeaderValue(block, "Content-Length");
  return value.empty() ? std::numeric_limits<int32_t>::min()
                       : LeadingDecimal(value);
}

bool IsWholeBody(int32_t announcedBytes, size_t availableBytes) {
  // Deliberate: without any byte of a body Content-Length is not looked at; a
  // request whose headers arrive alone is processed at once.
  return availableBytes == 0 ||
         static_cast<int32_t>(availableBytes) >= announcedBytes;
}

}  // namespace kova
