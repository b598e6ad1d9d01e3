// The server's settings in the registry, changed for a while.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::test {

inline constexpr wchar_t kTcpEnabled[] = L"TCP Enabled";
inline constexpr wchar_t kServerPort[] = L"KOVA Server Port";
inline constexpr wchar_t kNetworkCommunication[] = L"Network Communication";
inline constexpr wchar_t kNetworkBidirectional[] = L"Network Bidirectional";

// A value's type and bytes.
struct SettingValue {
  DWORD type = REG_NONE;
  std::vector<uint8_t> bytes;

  bool operator==(const SettingValue&) const = default;
};

// From construction to destruction, this computer's four settings are the
// test's own: absent at first, put back exactly as they were at the end. Nests
// like scopes; at most one process of the machine may use it at a time.
class ServerSettingsScope {
 public:
  ServerSettingsScope();
  ~ServerSettingsScope();

  ServerSettingsScope(const ServerSettingsScope&) = delete;
  ServerSettingsScope& operator=(const ServerSettingsScope&) = delete;

  // Writes any bytes of any type; `sizeBytes` need not be what the server
  // expects. False if the registry refuses.
  bool Set(const wchar_t* name, DWORD type, const void* bytes, DWORD sizeBytes);
  // The one-byte switches, as REG_BINARY.
  bool SetByte(const wchar_t* name, uint8_t value);
  // The port, as REG_DWORD.
  bool SetPort(uint32_t port);
  void Delete(const wchar_t* name);
  // What the registry holds now.
  [[nodiscard]] std::optional<SettingValue> Get(const wchar_t* name) const;

 private:
  struct Saved {
    std::wstring name;
    std::optional<SettingValue> value;
  };

  UniqueRegistryKey m_key;
  std::vector<Saved> m_saved;
};

}  // namespace kova::test
