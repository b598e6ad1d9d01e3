// What a logger's mask means, and the words for it. Nothing here touches the
// registry.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

// All bits of channels; a new logger's mask of this server.
uint32_t AllChannels();

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

// The name or word above that is most like `word`; never empty.
std::wstring NearestMaskWord(std::wstring_view word);

// How many single-character changes lie between two words, case aside.
size_t WordDistance(std::wstring_view left, std::wstring_view right);

}  // namespace kova::ctl
