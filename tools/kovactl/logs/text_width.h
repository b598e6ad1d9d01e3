// For tests: how wide a text is.
#pragma once

#include <algorithm>
#include <string_view>

namespace kova::ctl::test {

// The length of the longest line.
inline size_t WidestLine(std::wstring_view text) {
  size_t widest = 0;
  while (!text.empty()) {
    const size_t length = std::min(text.find(L'\n'), text.size());
    widest = std::max(widest, length);
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return widest;
}

}  // namespace kova::ctl::test
