#include "admin/settings_key.h"

#include "common/server_settings.h"

namespace kova::ctl {
namespace {

Failure KeyFailure(const wchar_t* what, const Setting& setting,
                   LSTATUS status) {
  return SystemFailure(
      ExitCode::kInternalError,
      std::wstring(what) + L" the setting \"" + setting.name + L"\"",
      static_cast<unsigned long>(status));
}

}  // namespace

std::wstring SettingsKeyText() {
  return L"HKEY_LOCAL_MACHINE\\" + SettingsKeyPath();
}

std::optional<Failure> ReadSetting(const Setting& setting, ValueState& stored) {
  UniqueRegistryKey key;
  LSTATUS status =
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, SettingsKeyPath().c_str(), 0,
                      KEY_READ, key.Receive());
  if (status == ERROR_FILE_NOT_FOUND) {
    stored = {};
    return std::nullopt;
  }
  if (status == ERROR_SUCCESS) {
    status = ReadValueState(key.Get(), setting.name, stored);
  }
  if (status == ERROR_SUCCESS) return std::nullopt;
  return KeyFailure(L"cannot read", setting, status);
}

std::optional<Failure> WriteSetting(const Setting& setting,
                                    const ValueState& stored) {
  UniqueRegistryKey key;
  LSTATUS status = ::RegCreateKeyExW(
      HKEY_LOCAL_MACHINE, SettingsKeyPath().c_str(), 0, nullptr,
      REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr, key.Receive(), nullptr);
  if (status == ERROR_SUCCESS) {
    status = WriteValueState(key.Get(), setting.name, stored);
  }
  if (status == ERROR_SUCCESS) return std::nullopt;
  return KeyFailure(L"cannot change", setting, status);
}

}  // namespace kova::ctl
