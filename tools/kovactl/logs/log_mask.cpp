#include "logs/log_mask.h"

#include <algorithm>
#include <numeric>

#include "base/ascii.h"
#include "base/handles.h"
#include "common/plain_text.h"
#include "common/server_settings.h"
#include "log/log_channel.h"
#include "log/logger.h"
#include "log/server_logger.h"
#include "text/text_append.h"

namespace kova::ctl {
namespace {

constexpr uint32_t kLetteredChannels = 0x0000FFFF;
constexpr uint32_t kAlwaysInDebugger =
    tk::Bits(tk::LogChannel::Error) | tk::Bits(tk::LogChannel::Warning);

struct SpecialWord {
  const wchar_t* word;
  uint32_t (*bits)();
};

constexpr SpecialWord kSpecialWords[] = {
    {L"all", [] { return AllChannels(); }},
    {L"none", [] { return uint32_t{0}; }},
    {L"default", [] { return kServerLoggerDefaultMask; }},
};

// The high bits are the grave channels; the letters count up from bit 0.
bool IsGraver(const MaskBit& left, const MaskBit& right) {
  const bool leftIsLettered = (left.bit & kLetteredChannels) != 0;
  const bool rightIsLettered = (right.bit & kLetteredChannels) != 0;
  if (leftIsLettered != rightIsLettered) return rightIsLettered;
  return leftIsLettered ? left.bit < right.bit : left.bit > right.bit;
}

std::vector<MaskBit> MakeMaskBits() {
  std::vector<MaskBit> bits;
  for (const auto& [channel, name] : tk::ChannelNames) {
    bits.push_back({name, tk::Bits(channel), false});
  }
  std::ranges::sort(bits, IsGraver);
  bits.push_back({kDebuggerSwitch, tk::kDebuggerShowsAll, true});
  bits.push_back({kFileSwitch, tk::kFileSinkOn, true});
  return bits;
}

std::optional<uint32_t> ParseHex(std::wstring_view word) {
  constexpr size_t kMostDigits = 8;
  if (!EqualsNoCase(word.substr(0, 2), L"0x")) return std::nullopt;
  return ParseNumber(word.substr(2), 16, kMostDigits);
}

std::vector<std::wstring> NamesOf(uint32_t mask, bool switches) {
  std::vector<std::wstring> names;
  for (const MaskBit& row : MaskBits()) {
    if (row.isSwitch == switches && (mask & row.bit) != 0) {
      names.push_back(row.name);
    }
  }
  return names;
}

void AppendWord(std::wstring& text, const std::wstring& word) {
  if (!text.empty()) text += L' ';
  text += word;
}

// The lettered channels of `mask` from the row `first` on, as long as there is
// no gap; `first` becomes the row after them.
std::wstring LetterRun(uint32_t mask, size_t& first) {
  const std::vector<MaskBit>& bits = MaskBits();
  const std::wstring begin = bits[first].name;
  size_t last = first;
  while (last + 1 < bits.size() &&
         (bits[last + 1].bit & mask & kLetteredChannels) != 0) {
    ++last;
  }
  const bool isRun = last > first;
  const std::wstring end = isRun ? L"-" + bits[last].name.substr(10) : L"";
  first = last + 1;
  return begin + end;
}

// The longest name a value can have, and a terminator.
constexpr DWORD kNameCharacters = 16384;

LSTATUS ReadLogger(HKEY key, DWORD index, std::wstring& buffer,
                   LoggerMask& logger) {
  DWORD length = kNameCharacters;
  const LSTATUS status = ::RegEnumValueW(key, index, buffer.data(), &length,
                                         nullptr, nullptr, nullptr, nullptr);
  if (status != ERROR_SUCCESS) return status;
  logger.name.assign(buffer, 0, length);
  return ReadValueState(key, logger.name.c_str(), logger.value);
}

// How many single-character changes lie between two words, case aside.
size_t WordDistance(std::wstring_view left, std::wstring_view right) {
  std::vector<size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < left.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < right.size(); ++j) {
      const size_t replaced =
          diagonal + (FoldAscii(left[i]) == FoldAscii(right[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// Whether `word`, of three characters at least, is in `name`, case aside.
bool IsPartOf(std::wstring_view word, std::wstring_view name) {
  constexpr size_t kLeast = 3;
  const auto same = [](wchar_t left, wchar_t right) {
    return FoldAscii(left) == FoldAscii(right);
  };
  return word.size() >= kLeast &&
         std::ranges::search(name, word, same).size() == word.size();
}

}  // namespace

const std::vector<MaskBit>& MaskBits() {
  static const std::vector<MaskBit> bits = MakeMaskBits();
  return bits;
}

std::wstring HexMask(uint32_t mask) {
  std::wstring text = L"0x";
  AppendHex(text, mask, 8, HexDigits::kUpper);
  return text;
}

std::vector<std::wstring> ChannelsOf(uint32_t mask) {
  return NamesOf(mask, false);
}

std::vector<std::wstring> SwitchesOf(uint32_t mask) {
  return NamesOf(mask, true);
}

uint32_t NamelessBits(uint32_t mask) {
  return mask & ~(AllChannels() | tk::kDebuggerShowsAll | tk::kFileSinkOn);
}

std::wstring MaskText(uint32_t mask) {
  std::wstring text;
  const std::vector<MaskBit>& bits = MaskBits();
  for (size_t row = 0; row < bits.size();) {
    if ((mask & bits[row].bit) == 0) {
      ++row;
    } else if ((bits[row].bit & kLetteredChannels) != 0) {
      AppendWord(text, LetterRun(mask, row));
    } else {
      AppendWord(text, bits[row++].name);
    }
  }
  if (NamelessBits(mask) != 0) AppendWord(text, HexMask(NamelessBits(mask)));
  return text.empty() ? L"nothing" : text;
}

uint32_t ReachingEventLog(uint32_t mask) { return mask & AllChannels(); }

uint32_t ReachingDebugger(uint32_t mask) {
  const bool showsAll = (mask & tk::kDebuggerShowsAll) != 0;
  return mask & (showsAll ? AllChannels() : kAlwaysInDebugger);
}

uint32_t ReachingFile(uint32_t mask) {
  return (mask & tk::kFileSinkOn) != 0 ? mask & AllChannels() : 0;
}

std::optional<uint32_t> ParseMaskWord(std::wstring_view word) {
  for (const MaskBit& row : MaskBits()) {
    if (EqualsNoCase(word, row.name)) return row.bit;
  }
  for (const SpecialWord& row : kSpecialWords) {
    if (EqualsNoCase(word, row.word)) return row.bits();
  }
  return ParseHex(word);
}

std::wstring NearName(std::wstring_view word,
                      const std::vector<std::wstring>& names) {
  const size_t most = std::max<size_t>(word.size() / 3, 1);
  std::wstring nearest;
  size_t least = SIZE_MAX;
  for (const std::wstring& name : names) {
    const size_t distance =
        IsPartOf(word, name) ? most : WordDistance(word, name);
    if (distance > most || distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

std::wstring NearMaskName(std::wstring_view word) {
  std::vector<std::wstring> names;
  for (const MaskBit& row : MaskBits()) names.push_back(row.name);
  return NearName(word, names);
}

std::optional<uint32_t> LoggerMask::Mask() const {
  uint32_t mask = 0;
  if (!value.present || value.data.size() > sizeof(mask)) return std::nullopt;
  std::ranges::copy(value.data, reinterpret_cast<uint8_t*>(&mask));
  return mask;
}

bool LoggerMask::IsWellFormed() const {
  return value.present && value.type == REG_DWORD &&
         value.data.size() == sizeof(uint32_t);
}

LSTATUS ReadLoggerMasks(std::vector<LoggerMask>& loggers) {
  loggers.clear();
  UniqueRegistryKey key;
  LSTATUS status =
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMaskKey, 0, KEY_READ, key.Receive());
  if (status == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (status != ERROR_SUCCESS) return status;
  std::wstring buffer(kNameCharacters, L'\0');
  for (DWORD index = 0;; ++index) {
    LoggerMask logger;
    status = ReadLogger(key.Get(), index, buffer, logger);
    if (status == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
    if (status != ERROR_SUCCESS) return status;
    if (logger.value.present) loggers.push_back(std::move(logger));
  }
}

const LoggerMask* FindLogger(const std::vector<LoggerMask>& loggers,
                             const std::wstring& name) {
  for (const LoggerMask& logger : loggers) {
    if (SameName(logger.name, name)) return &logger;
  }
  return nullptr;
}

ValueState MaskValue(uint32_t mask) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&mask);
  return {true, REG_DWORD, {bytes, bytes + sizeof(mask)}};
}

LSTATUS WriteLogger(const LoggerMask& logger) {
  UniqueRegistryKey key;
  const LSTATUS status = ::RegCreateKeyExW(
      HKEY_LOCAL_MACHINE, kMaskKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
      KEY_SET_VALUE, nullptr, key.Receive(), nullptr);
  if (status != ERROR_SUCCESS) return status;
  return WriteValueState(key.Get(), logger.name.c_str(), logger.value);
}

}  // namespace kova::ctl
