#include "http/header_block.h"

#include <cstdint>

#include "base/ascii.h"
#include "base/find_byte.h"
#include "http/pieces.h"

namespace kova {

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

bool HasWholeBody(std::string_view block, size_t availableBytes) {
  // Deliberate: without any byte of a body Content-Length is not looked at; a
  // request whose headers arrive alone is processed at once.
  if (availableBytes == 0) return true;
  const std::string_view declared = FindHeaderValue(block, "Content-Length");
  return declared.empty() ||
         static_cast<int32_t>(availableBytes) >= LeadingDecimal(declared);
}

}  // namespace kova
