// Text rules that concern ASCII alone and so need no locale and no code page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace kova {

inline constexpr std::string_view kBlanks = " \t";
inline constexpr std::string_view kBlanksAndLineEnds = " \t\r\n";

// Folds a to z to A to Z and leaves every other unit alone.
template <typename Unit>
[[nodiscard]] constexpr Unit FoldAscii(Unit unit) {
  const bool isLower = unit >= Unit{'a'} && unit <= Unit{'z'};
  return isLower ? static_cast<Unit>(unit - ('a' - 'A')) : unit;
}

template <typename Unit>
[[nodiscard]] constexpr bool EqualsFolded(std::basic_string_view<Unit> left,
                                          std::basic_string_view<Unit> right) {
  if (left.size() != right.size()) return false;
  for (size_t i = 0; i < left.size(); ++i) {
    if (FoldAscii(left[i]) != FoldAscii(right[i])) return false;
  }
  return true;
}

// Whether both texts are the same apart from the case of ASCII letters.
[[nodiscard]] constexpr bool EqualsNoCase(std::string_view left,
                                          std::string_view right) {
  return EqualsFolded(left, right);
}
[[nodiscard]] constexpr bool EqualsNoCase(std::wstring_view left,
                                          std::wstring_view right) {
  return EqualsFolded(left, right);
}

// By hand: sets are short, and a call of the C runtime for each character
// costs more than looking at them.
[[nodiscard]] constexpr bool IsOneOf(char c, std::string_view set) {
  for (const char member : set) {
    if (c == member) return true;
  }
  return false;
}

// The part of `text` that is left without the characters of `set` at its
// start, at its end, at both.
[[nodiscard]] constexpr std::string_view TrimStart(std::string_view text,
                                                   std::string_view set) {
  while (!text.empty() && IsOneOf(text.front(), set)) {
    text.remove_prefix(1);
  }
  return text;
}
[[nodiscard]] constexpr std::string_view TrimEnd(std::string_view text,
                                                 std::string_view set) {
  while (!text.empty() && IsOneOf(text.back(), set)) {
    text.remove_suffix(1);
  }
  return text;
}
[[nodiscard]] constexpr std::string_view Trim(std::string_view text,
                                              std::string_view set) {
  return TrimEnd(TrimStart(text, set), set);
}

// The byte that the two characters of a "%" escape stand for: 16 times the
// first one's value plus the second's, kept to 8 bits. A decimal digit's value
// is its own.
// Deliberate: any other character's is its low four bits plus 9; nothing is
// validated, as clients and paths that escape carelessly have always been read.
template <typename Unit>
[[nodiscard]] constexpr char EscapedByte(Unit first, Unit second) {
  const auto valueOf = [](Unit unit) {
    return unit >= '0' && unit <= '9' ? static_cast<unsigned>(unit - '0')
                                      : (static_cast<unsigned>(unit) & 15u) + 9;
  };
  return static_cast<char>(valueOf(first) * 16 + valueOf(second));
}

// The number a text begins with, by the rules of C's atoi: white space, one
// sign, digits up to the first other character; 0 without digits. Where atoi
// is undefined because the number does not fit, the nearest limit is given.
[[nodiscard]] constexpr int32_t LeadingDecimal(std::string_view text) {
  constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
  constexpr int64_t kLeast = std::numeric_limits<int32_t>::min();
  text = TrimStart(text, " \t\n\v\f\r");
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = value * 10 + (c - '0');
    if (value > kMost) break;
  }
  if (isNegative) return static_cast<int32_t>(value > kMost ? kLeast : -value);
  return static_cast<int32_t>(value > kMost ? kMost : value);
}

}  // namespace kova
