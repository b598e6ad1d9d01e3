#include "common/server_settings.h"

#include "base/windows_api.h"

namespace kova::ctl {
namespace {

constexpr uint32_t kShowInDebugger = 0x08000000;
constexpr uint32_t kChannelsForPeople = 0xF0000000;
constexpr uint32_t kLetteredChannels = 0x0000FFFF;

// Fills `value` only if the registry holds a value of exactly its size.
template <typename T>
void ReadExactly(const std::wstring& keyPath, const wchar_t* name, T& value) {
  T read{};
  DWORD size = sizeof(read);
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, keyPath.c_str(), name, RRF_RT_ANY,
                     nullptr, &read, &size) == ERROR_SUCCESS &&
      size == sizeof(read)) {
    value = read;
  }
}

}  // namespace

std::wstring SettingsKeyPath() {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD length = static_cast<DWORD>(std::size(name));
  ::GetComputerNameW(name, &length);
  return std::wstring(L"SOFTWARE\\Corvane Tessaly\\Drivers\\Network\\@") + name;
}

ServerSettings ReadServerSettings() {
  const std::wstring keyPath = SettingsKeyPath();
  uint8_t tcpEnabled = 1;
  ServerSettings settings;
  ReadExactly(keyPath, kTcpEnabledValue, tcpEnabled);
  ReadExactly(keyPath, kPortValue, settings.port);
  settings.tcpEnabled = tcpEnabled != 0;
  return settings;
}

uint32_t ReadLogMask() {
  uint32_t mask = kDefaultLogMask;
  ReadExactly(kLogMasksKeyPath, kServerLoggerName, mask);
  return mask;
}

uint32_t LogMaskForRun(uint32_t current, bool verbose) {
  return current | kShowInDebugger | kChannelsForPeople |
         (verbose ? kLetteredChannels : 0);
}

}  // namespace kova::ctl
