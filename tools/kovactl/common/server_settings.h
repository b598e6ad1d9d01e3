// The settings and the log mask that the server on this computer would read.
#pragma once

#include <cstdint>
#include <string>

namespace kova::ctl {

// The key of this computer's settings, below HKEY_LOCAL_MACHINE.
std::wstring SettingsKeyPath();

// What decides whether the server listens, and where.
struct ServerSettings {
  bool tcpEnabled = true;
  uint32_t port = 0;
};
ServerSettings ReadServerSettings();

// The server's log mask now, or its default if there is none.
uint32_t ReadLogMask();

// All bits of channels; the switches are none.
uint32_t AllChannels();

// The mask under which a run shows its log: `current`, widened so that the
// lines for people appear (Error, Warning, Info, DetailInfo) and reach the
// debugger output; all channels if `verbose`.
uint32_t LogMaskForRun(uint32_t current, bool verbose);

}  // namespace kova::ctl
