// The settings of this computer in the registry.
#pragma once

#include <optional>
#include <string>

#include "admin/setting.h"
#include "common/exit_code.h"

namespace kova::ctl {

// The key of the settings, root included, for people.
std::wstring SettingsKeyText();

// Fills `stored` with what the registry holds for the setting; absent if there
// is no value or no key. On failure `stored` is left alone.
std::optional<Failure> ReadSetting(const Setting& setting, ValueState& stored);

// Writes `stored`, or deletes the value if it is absent. Makes the key if it is
// needed and missing.
std::optional<Failure> WriteSetting(const Setting& setting,
                                    const ValueState& stored);

}  // namespace kova::ctl
