// Decoding of percent-escaped text, as paths and form fields carry it.
#pragma once

#include <string>
#include <string_view>

#include "text/o_string.h"

// The decoded narrow bytes of `text`, as UTF-8 text (code page 1208). A "+" is
// a blank; "%" and two characters are one byte: 16 times the first one's value
// plus the second's, kept to 8 bits. A digit's value is its own, any other
// character's its low four bits plus 9; nothing is validated. A "%" with fewer
// than two characters after it is a zero byte, and the text ends at its first
// zero byte.
[[nodiscard]] OString UrlDecode(const OString& text);

namespace kova {

// The same for bytes that are no text yet. They end at their first zero.
[[nodiscard]] OString UrlDecodeBytes(std::string_view bytes);

// The 16-bit form of that text, and nothing else taken for it.
[[nodiscard]] std::wstring UrlDecodeToWide(std::string_view bytes);

// Whether the 16-bit form equals `name` apart from the case of ASCII letters.
// Decodes no more than it must and allocates nothing.
[[nodiscard]] bool DecodesToName(std::string_view bytes,
                                 std::wstring_view name);

// Whether that text is not empty. Decodes no more than it must.
[[nodiscard]] bool DecodesToText(std::string_view bytes);

}  // namespace kova
