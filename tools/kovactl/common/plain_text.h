// Plain text on a screen: what others wrote made harmless, lines and columns,
// numbers both ways.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kova::ctl {

// `text` with nothing left in it that could command a terminal: control
// characters become U+FFFD, tabs blanks, carriage returns vanish. Line ends at
// the end are cut off; further lines are indented by `indent` blanks.
std::wstring Harmless(std::wstring_view text, size_t indent);

// `text` as one line, for names: line ends count as control characters, too.
std::wstring HarmlessLine(std::wstring_view text);

// Prose of this program, broken at blanks so that no line passes 80 columns;
// every line begins with `indent` blanks and ends with a line end. A word that
// is longer than a line (a path) stays whole. Nothing for an empty text.
std::wstring Wrapped(std::wstring_view text, size_t indent);

// The same behind `label`, which stands in the first line's column 2 and must
// fit before `indent`; "-" for an empty text.
std::wstring LabelledRow(const std::wstring& label, std::wstring_view text,
                         size_t indent);

// `text` with blanks before or behind it up to `width`; longer texts stay.
std::wstring Right(const std::wstring& text, size_t width);
std::wstring Left(const std::wstring& text, size_t width);

// The end of `text` in at most `width` characters, behind "..." if shortened.
std::wstring Tail(const std::wstring& text, size_t width);

// "0x" and lower-case hexadecimal digits, at least `digits` (1 to 16).
std::wstring HexText(uint64_t number, size_t digits);

// The number that `text` is: 1 to `mostDigits` digits in base 10 or 16 (their
// case does not matter) and nothing else. Empty too if 32 bits cannot hold it.
std::optional<uint32_t> ParseNumber(std::wstring_view text, uint32_t base,
                                    size_t mostDigits);

// Whether Windows takes both for the same name of a file or registry value.
bool SameName(std::wstring_view left, std::wstring_view right);

}  // namespace kova::ctl
