// Registry values as words: their shape, and a form that can be typed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/saved_value.h"

namespace kova::ctl {

// "1 byte", "4 bytes".
std::wstring BytesText(size_t count);

// "REG_DWORD"; "type 99" for one without a name.
std::wstring TypeText(DWORD type);

// "REG_DWORD, 4 bytes".
std::wstring ShapeText(const ValueState& value);

// The type and every byte of a value that is present: "REG_BINARY:0A0BFF",
// "99:0A". ParseRawForm makes the same value of it; its letter case does not
// count. Empty for what RawForm never gives.
std::wstring RawForm(const ValueState& value);
std::optional<ValueState> ParseRawForm(std::wstring_view text);

}  // namespace kova::ctl
