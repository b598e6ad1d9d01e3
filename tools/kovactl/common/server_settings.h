// Where the server's settings lie in the registry, and what they amount to.
#pragma once

#include <cstdint>
#include <string>

namespace kova::ctl {

// Under HKEY_LOCAL_MACHINE. Each computer name has settings of its own; the
// name becomes one key name as it is, whatever characters it has.
std::wstring SettingsKeyPath();

inline constexpr wchar_t kPortValue[] = L"KOVA Server Port";
inline constexpr wchar_t kTcpEnabledValue[] = L"TCP Enabled";

// The log masks of all loggers, under HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kLogMasksKeyPath[] =
    L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks";
inline constexpr wchar_t kServerLoggerName[] = L"Corvane KOVA Server";
inline constexpr uint32_t kDefaultLogMask = 0xE0000000;

// The settings as the server reads them when it starts: a value that is missing
// or of another size counts as its default.
struct ServerSettings {
  bool tcpEnabled = true;
  uint32_t port = 5130;
};
ServerSettings ReadServerSettings();

// The server's log mask now; kDefaultLogMask if there is none.
uint32_t ReadLogMask();

// The mask under which a run shows its log: `current`, widened so that the
// lines for people appear (Error, Warning, Info, DetailInfo) and reach the
// debugger output; all channels if `verbose`.
uint32_t LogMaskForRun(uint32_t current, bool verbose);

}  // namespace kova::ctl
