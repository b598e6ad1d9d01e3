// Settings as people and programs read them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "admin/setting.h"
#include "common/json.h"

namespace kova::ctl {

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
