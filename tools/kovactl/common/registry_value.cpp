#include "common/registry_value.h"

#include <utility>

#include "base/ascii.h"
#include "common/plain_text.h"
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
  return ParseNumber(text, 10, kMostTypeDigits);
}

}  // namespace

LSTATUS ReadValueState(HKEY key, const wchar_t* name, ValueState& state) {
  ValueState read;
  LSTATUS status = ERROR_MORE_DATA;
  // The value may grow between asking for its size and reading it.
  while (status == ERROR_MORE_DATA) {
    DWORD size = 0;
    status = ::RegQueryValueExW(key, name, nullptr, &read.type, nullptr, &size);
    if (status != ERROR_SUCCESS) break;
    read.data.resize(size);
    status = ::RegQueryValueExW(key, name, nullptr, &read.type,
                                read.data.data(), &size);
    if (status == ERROR_SUCCESS) read.data.resize(size);
  }
  if (status == ERROR_FILE_NOT_FOUND) {
    state = {};
    return ERROR_SUCCESS;
  }
  if (status != ERROR_SUCCESS) return status;
  read.present = true;
  state = std::move(read);
  return ERROR_SUCCESS;
}

LSTATUS WriteValueState(HKEY key, const wchar_t* name,
                        const ValueState& state) {
  if (!state.present) {
    const LSTATUS status = ::RegDeleteValueW(key, name);
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
  }
  // The registry looks for a text's zero behind the given bytes, too, and would
  // store it: what lies there must be ours, and no zero.
  std::vector<uint8_t> data = state.data;
  data.insert(data.end(), 2 * sizeof(wchar_t), 0xFF);
  return ::RegSetValueExW(key, name, 0, state.type, data.data(),
                          static_cast<DWORD>(state.data.size()));
}

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
    const auto byte = ParseNumber(digits.substr(i, 2), 16, 2);
    if (!byte) return std::nullopt;
    value.data.push_back(static_cast<uint8_t>(*byte));
  }
  return value;
}

}  // namespace kova::ctl
