#include "text/text_append.h"

#include <charconv>
#include <iterator>

namespace kova {
namespace {

template <typename Number>
void AppendNumber(std::wstring& text, Number number) {
  char digits[24];
  const auto [end, error] =
      std::to_chars(std::begin(digits), std::end(digits), number);
  AppendNarrow(text, std::string_view(digits, end - digits));
}

}  // namespace

void AppendNarrow(std::wstring& text, std::string_view narrow) {
  for (const char byte : narrow) {
    text += static_cast<wchar_t>(static_cast<unsigned char>(byte));
  }
}

void AppendDecimal(std::wstring& text, int64_t number) {
  AppendNumber(text, number);
}

void AppendDecimal(std::wstring& text, uint64_t number) {
  AppendNumber(text, number);
}

void AppendHex(std::wstring& text, uint64_t number, int leastDigits,
               HexDigits digits) {
  const wchar_t* const table =
      digits == HexDigits::kLower ? L"0123456789abcdef" : L"0123456789ABCDEF";
  wchar_t buffer[16];
  wchar_t* const end = std::end(buffer);
  wchar_t* first = end;
  do {
    *--first = table[number & 0xF];
    number >>= 4;
  } while (number != 0 || end - first < leastDigits);
  text.append(first, end);
}

}  // namespace kova
