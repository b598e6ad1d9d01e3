// Registry values: what one holds at a moment, and that as words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/windows_api.h"

namespace kova::ctl {

// What a value is at one moment.
struct ValueState {
  bool present = false;
  DWORD type = REG_NONE;
  std::vector<uint8_t> data;

  bool operator==(const ValueState&) const = default;
};

// Reads the value `name` under the open `key`. `state` is filled only on
// success; a value that is missing is a success, too. Returns the error code.
[[nodiscard]] LSTATUS ReadValueState(HKEY key, const wchar_t* name,
                                     ValueState& state);

// Writes exactly what `state` holds, or deletes the value if it is absent; one
// that is absent already is a success. Returns the error code.
[[nodiscard]] LSTATUS WriteValueState(HKEY key, const wchar_t* name,
                                      const ValueState& state);

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
