// The pieces of a text between separators.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/find_byte.h"

namespace kova {

// Calls `take` for each piece of `text` between separators, empty ones too,
// until it returns false.
template <typename Take>
void ForEachPiece(std::string_view text, char separator, const Take& take) {
  size_t from = 0;
  size_t end = FindByte(text, from, separator);
  while (end != text.size()) {
    if (!take(text.substr(from, end - from))) return;
    from = end + 1;
    end = FindByte(text, from, separator);
  }
  take(text.substr(from));
}

}  // namespace kova
