// Finding bytes eight at a time: the C runtime of Windows looks at one by one.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kova {

static_assert(std::endian::native == std::endian::little);

// `byte` in each of the eight bytes of a word.
[[nodiscard]] constexpr uint64_t EightOf(char byte) {
  return uint64_t{0x0101010101010101} * static_cast<unsigned char>(byte);
}

// A mask with the top bit of each byte of `word` that is zero. Bytes above the
// lowest such byte may be marked too; the lowest one is right.
[[nodiscard]] constexpr uint64_t ZeroBytes(uint64_t word) {
  return (word - EightOf('\x01')) & ~word & EightOf('\x80');
}

// The index of the first byte at or after `from` that is one of the two;
// text.size() when there is none. `from` is at most text.size().
[[nodiscard]] inline size_t FindEither(std::string_view text, size_t from,
                                       char first, char second) {
  const uint64_t firsts = EightOf(first);
  const uint64_t seconds = EightOf(second);
  for (; text.size() - from >= sizeof(uint64_t); from += sizeof(uint64_t)) {
    uint64_t word = 0;
    std::memcpy(&word, text.data() + from, sizeof(word));
    const uint64_t found = ZeroBytes(word ^ firsts) | ZeroBytes(word ^ seconds);
    if (found != 0) {
      return from + static_cast<size_t>(std::countr_zero(found)) / 8;
    }
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
