// The server's settings in the registry.
#pragma once

#include <cstdint>
#include <string>

#include "registry/o_registry.h"

namespace kova {

// The registry value of one setting, and what counts where there is none.
template <typename Number>
struct NumberSetting {
  const wchar_t* name;
  Number ifAbsent;
};

inline constexpr NumberSetting<uint8_t> kTcpEnabledSetting = {L"TCP Enabled",
                                                              1};
inline constexpr NumberSetting<uint32_t> kPortSetting = {L"KOVA Server Port",
                                                         5130};
inline constexpr NumberSetting<uint8_t> kCommunicationSetting = {
    L"Network Communication", 1};
// Written by the server, read by nobody here.
inline constexpr const wchar_t* kBidirectionalName = L"Network Bidirectional";

// Reads and writes the settings of one computer, under the key path
// "LOCAL:Network/@" followed by its name. A value that is missing, cannot be
// read, or has another size than the setting counts as absent; its type is not
// looked at. Every call reads anew. Not safe for use by two threads at once.
class ServerSettings {
 public:
  // `computerName` may hold any characters.
  explicit ServerSettings(const std::wstring& computerName);

  // The key of one computer's settings, in the key-path language.
  [[nodiscard]] static std::wstring KeyPath(const std::wstring& computerName);

  // "TCP Enabled", 1 byte, absent: 1. Zero: nothing listens.
  [[nodiscard]] bool IsTcpEnabled();
  // "KOVA Server Port", 4 bytes, absent: 5130.
  [[nodiscard]] uint32_t Port();
  // "Network Communication", 1 byte, absent: 1. Zero: loopback only.
  [[nodiscard]] uint8_t NetworkCommunication();
  // "Network Bidirectional", 1 byte, REG_BINARY. A failure is ignored.
  void WriteNetworkBidirectional(uint8_t value);

 private:
  template <typename Number>
  Number Read(const NumberSetting<Number>& setting);

  ORegistry m_registry;
};

}  // namespace kova
