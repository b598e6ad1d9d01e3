// The server's settings: their names, what the registry holds, what the server
// makes of it, and all that for people and programs.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/exit_code.h"
#include "common/json.h"
#include "common/registry_value.h"

namespace kova::ctl {

enum class SettingId {
  kPort,
  kTcpEnabled,
  kNetworkCommunication,
  kNetworkBidirectional,
};

// One value under the key of the server's settings.
struct Setting {
  SettingId id;
  const wchar_t* name;       // of the registry value
  const wchar_t* shortName;  // the shortest form that commands show
  uint32_t sizeBytes;        // 1 or 4: the server takes no other size
  DWORD type;                // what is written; the server looks at no type
  std::optional<uint32_t> ifAbsent;  // empty: the server only writes it
};

std::span<const Setting> AllSettings();
const Setting& SettingOf(SettingId id);

// All settings that `text` may mean: letter case, blanks, '-' and '_' do not
// count, and the beginning of any of the name's words on is enough. One that is
// meant by its whole name or its short name is the only one.
std::vector<const Setting*> FindSettings(std::wstring_view text);

enum class Origin {
  kStored,    // the registry has a value that the server takes
  kAbsent,    // it has none
  kUnusable,  // it has one of a size that the server passes over
};
// The words for programs.
NLOHMANN_JSON_SERIALIZE_ENUM(Origin, {{Origin::kStored, "stored"},
                                      {Origin::kAbsent, "absent"},
                                      {Origin::kUnusable, "unusable"}})

Origin OriginOf(const Setting& setting, const ValueState& stored);

// The number the server works with; empty only for a setting that it does not
// read while it has not written it.
std::optional<uint32_t> EffectiveValue(const Setting& setting,
                                       const ValueState& stored);

// Where that number comes from, as half a sentence.
std::wstring OriginText(const Setting& setting, const ValueState& stored);

// What is odd about the stored value, as half a sentence; empty if nothing is.
std::wstring RemarkText(const Setting& setting, const ValueState& stored);

// What the number means to the server, as half a sentence.
std::wstring MeaningText(const Setting& setting,
                         std::optional<uint32_t> effective);

// The number that a user's word stands for: 0 to 65535 for the port; 0, 1, on,
// off, yes, no, true, false for a switch. Empty for anything else.
std::optional<uint32_t> ParseSettingValue(const Setting& setting,
                                          std::wstring_view text);
// What ParseSettingValue takes, for messages.
std::wstring AcceptedValues(const Setting& setting);

// `number` as the server reads it: type, bytes and size.
ValueState StoredForm(const Setting& setting, uint32_t number);

// TCP ports have 16 bits; the server hands on the lowest of its 32.
constexpr uint16_t ListeningPort(uint32_t portSetting) {
  return static_cast<uint16_t>(portSetting & 0xFFFF);
}

// The key of the settings, root included, for people.
std::wstring SettingsKeyText();

// Fills `stored` with what the registry holds for the setting; absent if there
// is no value or no key. On failure `stored` is left alone.
std::optional<Failure> ReadSetting(const Setting& setting, ValueState& stored);

// Writes `stored`, or deletes the value if it is absent. Makes the key if it is
// needed and missing.
std::optional<Failure> WriteSetting(const Setting& setting,
                                    const ValueState& stored);

struct SettingState {
  const Setting* setting;
  ValueState stored;
};

// When a changed setting takes effect, as a sentence.
inline constexpr wchar_t kTakesEffect[] =
    L"The server reads its settings when its host starts it and when a driver "
    L"extension asks for a restart; until then nothing changes.";

// Two lines per setting, in 80 columns, indented by `indent`.
std::wstring SettingsText(const std::vector<SettingState>& states,
                          size_t indent);
Json SettingJson(const SettingState& state);

// The command that brings back `before`, which is what was stored. Empty if it
// is too large for a command line.
std::optional<std::wstring> UndoCommand(const Setting& setting,
                                        const ValueState& before);

// What a change from `before` to `after` did, and how it is undone.
std::wstring ChangeText(const Setting& setting, const ValueState& before,
                        const ValueState& after);
Json ChangeJson(const Setting& setting, const ValueState& before,
                const ValueState& after);

}  // namespace kova::ctl
