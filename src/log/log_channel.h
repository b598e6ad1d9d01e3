// The channels that log lines are written on.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace tk {

// One bit per channel. A logger's mask is any combination of them and of the
// two switches below; channels are tested against a mask with a bitwise AND.
enum class LogChannel : uint32_t {
  Error = 0x80000000,
  Warning = 0x40000000,
  Info = 0x20000000,
  DetailInfo = 0x10000000,
  DetailInfoA = 0x00000001,
  DetailInfoB = 0x00000002,
  DetailInfoC = 0x00000004,
  DetailInfoD = 0x00000008,
  DetailInfoE = 0x00000010,
  DetailInfoF = 0x00000020,
  DetailInfoG = 0x00000040,
  DetailInfoH = 0x00000080,
  DetailInfoI = 0x00000100,
  DetailInfoJ = 0x00000200,
  DetailInfoK = 0x00000400,
  DetailInfoL = 0x00000800,
  DetailInfoM = 0x00001000,
  DetailInfoN = 0x00002000,
  DetailInfoO = 0x00004000,
  DetailInfoP = 0x00008000,
};

// Mask bits that are switches, not channels: the debugger sink shows more than
// errors and warnings; the file sink is on.
inline constexpr uint32_t kDebuggerShowsAll = 0x08000000;
inline constexpr uint32_t kFileSinkOn = 0x04000000;

constexpr uint32_t Bits(LogChannel channel) {
  return static_cast<uint32_t>(channel);
}

// Errors and warnings are never filtered by a mask. A combination of channels
// is neither, even if it contains one.
constexpr bool IsAlwaysLogged(LogChannel channel) {
  return channel == LogChannel::Error || channel == LogChannel::Warning;
}

// Each channel's name, spelled as its enumerator. Filled when the module
// loads, never changed; safe to read on any thread from then on.
extern const std::unordered_map<LogChannel, std::wstring> ChannelNames;

}  // namespace tk
