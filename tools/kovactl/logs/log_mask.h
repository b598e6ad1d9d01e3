// The loggers' masks: what their bits mean, the words for them, and the
// registry that holds them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/registry_value.h"

namespace kova::ctl {

// One named bit of a mask.
struct MaskBit {
  std::wstring name;
  uint32_t bit = 0;
  // Not a channel, but where lines go: kDebuggerSwitch or kFileSwitch.
  bool isSwitch = false;
};

// Lines other than errors and warnings go to the debugger output, too.
inline constexpr wchar_t kDebuggerSwitch[] = L"DebuggerOutput";
// Lines go to the log file, too.
inline constexpr wchar_t kFileSwitch[] = L"LogFile";

// Every bit that has a name: the channels, named as the server names them, the
// gravest first, then the two switches.
const std::vector<MaskBit>& MaskBits();

// "0x" and eight upper-case hexadecimal digits.
std::wstring HexMask(uint32_t mask);

// The names of the bits of `mask` in the order of MaskBits, channels or
// switches. Bits without a name are left out.
std::vector<std::wstring> ChannelsOf(uint32_t mask);
std::vector<std::wstring> SwitchesOf(uint32_t mask);

// The bits of `mask` that have no name.
uint32_t NamelessBits(uint32_t mask);

// `mask` in words for people: names with blanks between, runs of lettered
// channels as "DetailInfoA-C", bits without a name in hexadecimal; "nothing"
// for 0.
std::wstring MaskText(uint32_t mask);

// The channels of `mask` whose lines reach a sink. All of them reach the event
// log; errors and warnings the debugger whatever the switches are.
uint32_t ReachingEventLog(uint32_t mask);
uint32_t ReachingDebugger(uint32_t mask);
uint32_t ReachingFile(uint32_t mask);

// What one word of a command line stands for: a name of MaskBits (case does
// not matter), "0x" and up to eight hexadecimal digits, "all" (every channel),
// "none" (0) or "default". Nothing for any other word.
std::optional<uint32_t> ParseMaskWord(std::wstring_view word);

// The one of `names` that somebody who wrote `word` most likely meant: that it
// is a part of, or that differs from it in few characters, case aside. Empty if
// none is near.
std::wstring NearName(std::wstring_view word,
                      const std::vector<std::wstring>& names);

// The same among MaskBits. The words that stand for many channels or none are
// never suggested.
std::wstring NearMaskName(std::wstring_view word);

// One value under the masks key.
struct LoggerMask {
  std::wstring name;
  ValueState value;

  // The mask that the logger reads from the value: it takes up to four bytes
  // of any type. Nothing if there is no value or a longer one; the logger then
  // keeps the mask it has and writes it back.
  [[nodiscard]] std::optional<uint32_t> Mask() const;
  // Whether the value has the type and size that loggers write.
  [[nodiscard]] bool IsWellFormed() const;
};

// Every value under the masks key, in its order; empty if there is no key.
// Returns the error code.
[[nodiscard]] LSTATUS ReadLoggerMasks(std::vector<LoggerMask>& loggers);

// The row called `name`, case aside; null if there is none. The pointer holds
// as long as `loggers`.
const LoggerMask* FindLogger(const std::vector<LoggerMask>& loggers,
                             const std::wstring& name);

// `mask` as loggers store it, a REG_DWORD.
ValueState MaskValue(uint32_t mask);

// Stores the logger's value as it is, making the key if it is missing. Returns
// the error code.
[[nodiscard]] LSTATUS WriteLogger(const LoggerMask& logger);

}  // namespace kova::ctl
