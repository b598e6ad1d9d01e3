#include "server/server_settings.h"

namespace kova {

ServerSettings::ServerSettings(const std::wstring& computerName) {
  m_registry.SetKeyPath(KeyPath(computerName));
}

std::wstring ServerSettings::KeyPath(const std::wstring& computerName) {
  return L"LOCAL:Network/@" + ORegistry::EscapeName(computerName);
}

bool ServerSettings::IsTcpEnabled() { return Read(kTcpEnabledSetting) != 0; }

uint32_t ServerSettings::Port() { return Read(kPortSetting); }

uint8_t ServerSettings::NetworkCommunication() {
  return Read(kCommunicationSetting);
}

void ServerSettings::WriteNetworkBidirectional(uint8_t value) {
  (void)m_registry.WriteValue(kBidirectionalName, &value);
}

template <typename Number>
Number ServerSettings::Read(const NumberSetting<Number>& setting) {
  constexpr auto kSize = static_cast<int32_t>(sizeof(Number));
  Number value = 0;
  return m_registry.ReadValue(setting.name, &value, kSize) == kSize
             ? value
             : setting.ifAbsent;
}

}  // namespace kova
