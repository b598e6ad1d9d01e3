#include "http/header_block.h"

#include <limits>

#include "base/ascii.h"
#include "base/byte_search.h"

namespace kova {

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
