// Finding bytes sixteen at a time: the C runtime of Windows looks at each one
// by itself.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/byte_block.h"

namespace kova {

// The index of the first byte at or after `from` that is one of the two;
// text.size() when there is none. `from` is at most text.size().
[[nodiscard]] inline size_t FindEither(std::string_view text, size_t from,
                                       char first, char second) {
  const __m128i firsts = _mm_set1_epi8(first);
  const __m128i seconds = _mm_set1_epi8(second);
  for (; text.size() - from >= sizeof(__m128i); from += sizeof(__m128i)) {
    const __m128i bytes = SixteenBytes(text.data() + from);
    const uint32_t found = BitOfEach(_mm_or_si128(
        _mm_cmpeq_epi8(bytes, firsts), _mm_cmpeq_epi8(bytes, seconds)));
    if (found != 0) return from + static_cast<size_t>(std::countr_zero(found));
  }
  while (from < text.size() && text[from] != first && text[from] != second) {
    ++from;
  }
  return from;
}

// The same for one byte.
[[nodiscard]] inline size_t FindByte(std::string_view text, size_t from,
                                     char byte) {
  return FindEither(text, from, byte, byte);
}

}  // namespace kova
