#include "admin/value_text.h"

#include "base/ascii.h"
#include "text/text_append.h"

namespace kova::ctl {
namespace {

struct TypeName {
  DWORD type;
  std::wstring_view name;
};

constexpr TypeName kTypeNames[] = {
    {REG_NONE, L"REG_NONE"},           {REG_SZ, L"REG_SZ"},
    {REG_EXPAND_SZ, L"REG_EXPAND_SZ"}, {REG_BINARY, L"REG_BINARY"},
    {REG_DWORD, L"REG_DWORD"},         {REG_MULTI_SZ, L"REG_MULTI_SZ"},
    {REG_QWORD, L"REG_QWORD"},
};

constexpr size_t kMostTypeDigits = 10;

std::wstring_view NameOf(DWORD type) {
  for (const TypeName& row : kTypeNames) {
    if (row.type == type) return row.name;
  }
  return {};
}

std::optional<DWORD> ParseType(std::wstring_view text) {
  for (const TypeName& row : kTypeNames) {
    if (EqualsNoCase(text, row.name)) return row.type;
  }
  if (text.empty() || text.size() > kMostTypeDigits) return std::nullopt;
  uint64_t type = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') return std::nullopt;
    type = type * 10 + static_cast<uint64_t>(c - L'0');
  }
  if (type > MAXDWORD) return std::nullopt;
  return static_cast<DWORD>(type);
}

// -1 for what is no hexadecimal digit.
int DigitOf(wchar_t c) {
  const size_t at = std::wstring_view(L"0123456789ABCDEF").find(FoldAscii(c));
  return at == std::wstring_view::npos ? -1 : static_cast<int>(at);
}

}  // namespace

std::wstring BytesText(size_t count) {
  return std::to_wstring(count) + (count == 1 ? L" byte" : L" bytes");
}

std::wstring TypeText(DWORD type) {
  const std::wstring_view name = NameOf(type);
  return name.empty() ? L"type " + std::to_wstring(type) : std::wstring(name);
}

std::wstring ShapeText(const ValueState& value) {
  return TypeText(value.type) + L", " + BytesText(value.data.size());
}

std::wstring RawForm(const ValueState& value) {
  const std::wstring_view name = NameOf(value.type);
  std::wstring text =
      name.empty() ? std::to_wstring(value.type) : std::wstring(name);
  text += L':';
  for (const uint8_t byte : value.data) {
    AppendHex(text, byte, 2, HexDigits::kUpper);
  }
  return text;
}

std::optional<ValueState> ParseRawForm(std::wstring_view text) {
  const size_t colon = text.find(L':');
  if (colon == std::wstring_view::npos) return std::nullopt;
  const std::optional<DWORD> type = ParseType(text.substr(0, colon));
  const std::wstring_view digits = text.substr(colon + 1);
  if (!type || digits.size() % 2 != 0) return std::nullopt;
  ValueState value{true, *type, {}};
  for (size_t i = 0; i < digits.size(); i += 2) {
    const int high = DigitOf(digits[i]);
    const int low = DigitOf(digits[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    value.data.push_back(static_cast<uint8_t>(high * 16 + low));
  }
  return value;
}

}  // namespace kova::ctl
