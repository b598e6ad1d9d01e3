// Conversion between the 8-bit and the 16-bit form of a text by code page.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kova {

// The process's ANSI code page, looked up at each use.
inline constexpr uint32_t kCodePageAnsi = 0;
// UTF-8 by a codec of our own that neither pairs surrogates nor validates.
inline constexpr uint32_t kCodePageUtf8 = 1208;
// Each byte is the unit of the same value.
inline constexpr uint32_t kCodePageBytes = 64999;

// Whether one character of the code page may take several bytes, so that
// indexes and comparisons are right in the 16-bit form only. UTF-8 is one of
// them; 0 stands for the process's ANSI code page.
[[nodiscard]] bool IsMultiByteCodePage(uint32_t codePage);

// Each converts the zero-terminated `text`, `length` units long, into `out`,
// which has room for `outUnits` (at least 1) and must not overlap `text`. The
// result is always terminated; the value is its length without terminator. It
// ends at the first unit that converts to zero. Code pages of Windows are
// converted with WideCharToMultiByte and MultiByteToWideChar without flags; a
// code page they refuse, or a result that does not fit, gives empty text.
// UTF-8 results are cut at a whole character. Safe on any thread.
[[nodiscard]] size_t ConvertToNarrow(uint32_t codePage, const wchar_t* text,
                                     size_t length, char* out, size_t outUnits);
[[nodiscard]] size_t ConvertToWide(uint32_t codePage, const char* text,
                                   size_t length, wchar_t* out,
                                   size_t outUnits);

}  // namespace kova
