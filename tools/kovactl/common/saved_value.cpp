#include "common/saved_value.h"

#include <utility>

namespace kova::ctl {

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

SavedValue::SavedValue(HKEY root, std::wstring keyPath, std::wstring valueName)
    : m_root(root),
      m_keyPath(std::move(keyPath)),
      m_valueName(std::move(valueName)) {}

SavedValue::~SavedValue() {
  if (!m_key.IsValid()) return;
  static_cast<void>(
      WriteValueState(m_key.Get(), m_valueName.c_str(), m_before));
}

LSTATUS SavedValue::Set(DWORD number) {
  UniqueRegistryKey key;
  LSTATUS status = ::RegCreateKeyExW(
      m_root, m_keyPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
      KEY_READ | KEY_WRITE, nullptr, key.Receive(), nullptr);
  if (status != ERROR_SUCCESS) return status;
  ValueState before;
  status = ReadValueState(key.Get(), m_valueName.c_str(), before);
  if (status != ERROR_SUCCESS) return status;
  status =
      ::RegSetValueExW(key.Get(), m_valueName.c_str(), 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>(&number), sizeof(number));
  if (status != ERROR_SUCCESS) return status;
  if (!m_key.IsValid()) m_before = std::move(before);
  m_key = std::move(key);
  return ERROR_SUCCESS;
}

}  // namespace kova::ctl
