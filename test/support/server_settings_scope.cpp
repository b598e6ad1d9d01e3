#include "test/support/server_settings_scope.h"

namespace kova::test {
namespace {

constexpr const wchar_t* kNames[] = {
    kTcpEnabled, kServerPort, kNetworkCommunication, kNetworkBidirectional};

// The computer's name is one key name as it is: the escapes of the key-path
// language are undone before the registry sees it.
std::wstring KeyName() {
  wchar_t name[260] = {};
  DWORD units = 260;
  ::GetComputerNameW(name, &units);
  return std::wstring(L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\@") + name;
}

}  // namespace

ServerSettingsScope::ServerSettingsScope() {
  ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, KeyName().c_str(), 0, nullptr, 0,
                    KEY_READ | KEY_WRITE, nullptr, m_key.Receive(), nullptr);
  for (const wchar_t* const name : kNames) {
    m_saved.push_back({name, Get(name)});
    Delete(name);
  }
}

ServerSettingsScope::~ServerSettingsScope() {
  for (const Saved& saved : m_saved) {
    if (saved.value.has_value()) {
      Set(saved.name.c_str(), saved.value->type, saved.value->bytes.data(),
          static_cast<DWORD>(saved.value->bytes.size()));
    } else {
      Delete(saved.name.c_str());
    }
  }
}

bool ServerSettingsScope::Set(const wchar_t* name, DWORD type,
                              const void* bytes, DWORD sizeBytes) {
  return ::RegSetValueExW(m_key.Get(), name, 0, type,
                          static_cast<const BYTE*>(bytes),
                          sizeBytes) == ERROR_SUCCESS;
}

bool ServerSettingsScope::SetByte(const wchar_t* name, uint8_t value) {
  return Set(name, REG_BINARY, &value, sizeof(value));
}

bool ServerSettingsScope::SetPort(uint32_t port) {
  return Set(kServerPort, REG_DWORD, &port, sizeof(port));
}

void ServerSettingsScope::Delete(const wchar_t* name) {
  ::RegDeleteValueW(m_key.Get(), name);
}

std::optional<SettingValue> ServerSettingsScope::Get(
    const wchar_t* name) const {
  SettingValue value;
  DWORD sizeBytes = 0;
  if (::RegQueryValueExW(m_key.Get(), name, nullptr, nullptr, nullptr,
                         &sizeBytes) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  value.bytes.resize(sizeBytes);
  if (::RegQueryValueExW(m_key.Get(), name, nullptr, &value.type,
                         value.bytes.data(), &sizeBytes) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  return value;
}

}  // namespace kova::test
