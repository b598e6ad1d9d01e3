// Appends values to wide text, in the same characters whatever the locale. In
// place of the standard's streams: those start the runtime's locale machinery,
// which leaves two handles and a slot of thread-local storage with the first
// thread that uses one, for good.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kova {

// Widens character by character; each byte is a character of its own.
void AppendNarrow(std::wstring& text, std::string_view narrow);

// In decimal; a minus sign in front of negative ones.
void AppendDecimal(std::wstring& text, int64_t number);
void AppendDecimal(std::wstring& text, uint64_t number);

enum class HexDigits { kLower, kUpper };

// In hexadecimal without a prefix, padded with zeros in front up to
// `leastDigits` (1 to 16).
void AppendHex(std::wstring& text, uint64_t number, int leastDigits = 1,
               HexDigits digits = HexDigits::kLower);

}  // namespace kova
