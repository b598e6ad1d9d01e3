// Searching bytes sixteen and more at a time, with what every x64 processor
// has: the C runtime of Windows looks at each one by itself.
#pragma once

#include <emmintrin.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kova {

// 16 bytes from `at` on, which need not be aligned.
[[nodiscard]] inline __m128i SixteenBytes(const char* at) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

// One bit for each of 16 bytes, the first byte's lowest: whether its top bit is
// set, as it is in each byte that a comparison found equal.
[[nodiscard]] inline uint32_t BitOfEach(__m128i bytes) {
  return static_cast<uint32_t>(_mm_movemask_epi8(bytes));
}

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

// 64 bytes of a text, to ask where in them a byte is.
class ByteBlock {
 public:
  static constexpr size_t kBytes = 64;

  // Copies the bytes from `at` on, which need not be aligned.
  explicit ByteBlock(const char* at)
      : m_parts{SixteenBytes(at), SixteenBytes(at + 16), SixteenBytes(at + 32),
                SixteenBytes(at + 48)} {}

  [[nodiscard]] bool Has(char byte) const {
    const __m128i wanted = _mm_set1_epi8(byte);
    __m128i found = _mm_cmpeq_epi8(m_parts[0], wanted);
    for (size_t i = 1; i < kParts; ++i) {
      found = _mm_or_si128(found, _mm_cmpeq_epi8(m_parts[i], wanted));
    }
    return BitOfEach(found) != 0;
  }

  // The same for zero, which costs less.
  [[nodiscard]] bool HasZero() const {
    __m128i least = m_parts[0];
    for (size_t i = 1; i < kParts; ++i) {
      least = _mm_min_epu8(least, m_parts[i]);
    }
    return BitOfEach(_mm_cmpeq_epi8(least, _mm_setzero_si128())) != 0;
  }

  // Bit i says whether the i-th byte is `byte`.
  [[nodiscard]] uint64_t Equal(char byte) const {
    const __m128i wanted = _mm_set1_epi8(byte);
    uint64_t found = 0;
    for (size_t i = 0; i < kParts; ++i) {
      found |= uint64_t{BitOfEach(_mm_cmpeq_epi8(m_parts[i], wanted))}
               << (16 * i);
    }
    return found;
  }

 private:
  static constexpr size_t kParts = 4;

  __m128i m_parts[kParts];
};

}  // namespace kova
