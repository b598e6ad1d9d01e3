// For fuzz targets: an input, taken piece by piece.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// Ends the program with a message if `condition` is false, so that the fuzzer
// keeps the input.
#define KOVA_FUZZ_EXPECT(condition)                                   \
  do {                                                                \
    if (!(condition)) {                                               \
      std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, \
                   #condition);                                       \
      std::abort();                                                   \
    }                                                                 \
  } while (false)

namespace kova::fuzz {

// Reads as zeros once it is used up.
class Input {
 public:
  Input(const uint8_t* data, size_t size)
      : m_rest(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] bool IsUsedUp() const { return m_rest.empty(); }

  uint8_t Byte() {
    if (m_rest.empty()) return 0;
    const auto byte = static_cast<uint8_t>(m_rest.front());
    m_rest.remove_prefix(1);
    return byte;
  }
  // Up to `most` bytes, as many as the next byte says.
  std::string Text(size_t most) {
    const size_t count = std::min({size_t{Byte()}, most, m_rest.size()});
    const std::string text(m_rest.substr(0, count));
    m_rest.remove_prefix(count);
    return text;
  }
  // What is left.
  std::string_view Rest() const { return m_rest; }

 private:
  std::string_view m_rest;
};

// Each byte as a character of its own.
inline std::wstring Widen(std::string_view bytes) {
  std::wstring text;
  for (const char byte : bytes) {
    text += static_cast<wchar_t>(static_cast<unsigned char>(byte));
  }
  return text;
}

// What an escape's two digits stand for, whatever they are.
inline uint8_t Escaped(char high, char low) {
  const auto digit = [](char c) {
    const auto code = static_cast<unsigned char>(c);
    return code >= '0' && code <= '9' ? code - '0' : (code & 15) + 9;
  };
  return static_cast<uint8_t>(digit(high) * 16 + digit(low));
}

}  // namespace kova::fuzz
