#include "server/server_settings.h"

namespace kova {
namespace {

constexpr uint8_t kTcpEnabledIfAbsent = 1;
constexpr uint32_t kPortIfAbsent = 5130;
constexpr uint8_t kNetworkCommunicationIfAbsent = 1;

}  // namespace

ServerSettings::ServerSettings(const std::wstring& computerName) {
  m_registry.SetKeyPath(L"LOCAL:Network/@" +
                        ORegistry::EscapeName(computerName));
}

bool ServerSettings::IsTcpEnabled() {
  return Read(L"TCP Enabled", kTcpEnabledIfAbsent) != 0;
}

uint32_t ServerSettings::Port() {
  return Read(L"KOVA Server Port", kPortIfAbsent);
}

uint8_t ServerSettings::NetworkCommunication() {
  return Read(L"Network Communication", kNetworkCommunicationIfAbsent);
}

void ServerSettings::WriteNetworkBidirectional(uint8_t value) {
  (void)m_registry.WriteValue(L"Network Bidirectional", &value);
}

template <typename Value>
Value ServerSettings::Read(const wchar_t* name, Value absent) {
  constexpr auto kSize = static_cast<int32_t>(sizeof(Value));
  Value value = 0;
  return m_registry.ReadValue(name, &value, kSize) == kSize ? value : absent;
}

}  // namespace kova
