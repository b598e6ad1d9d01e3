#include "admin/settings_report.h"

#include "common/plain_text.h"
#include "common/registry_value.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

constexpr size_t kNameWidth = 23;
constexpr size_t kNumberWidth = 7;
constexpr size_t kDetailIndent = 4;

// A command line has to fit the 8191 characters of a console.
constexpr size_t kMostUndoBytes = 2000;

std::wstring NumberText(std::optional<uint32_t> number) {
  return number ? std::to_wstring(*number) : L"-";
}

// "5130 (stored as REG_DWORD, 4 bytes)".
std::wstring StateText(const Setting& setting, const ValueState& stored) {
  const std::wstring remark = RemarkText(setting, stored);
  return NumberText(EffectiveValue(setting, stored)) + L" (" +
         OriginText(setting, stored) + (remark.empty() ? L"" : L": " + remark) +
         L")";
}

const char* OriginWord(Origin origin) {
  switch (origin) {
    case Origin::kStored:
      return "stored";
    case Origin::kAbsent:
      return "absent";
    case Origin::kUnusable:
      return "unusable";
  }
  return "";
}

Json StoredJson(const ValueState& stored) {
  return stored.present ? Json(ToUtf8(RawForm(stored))) : Json(nullptr);
}

// Whether set itself would store this value.
bool IsPlain(const Setting& setting, const ValueState& state) {
  const std::optional<uint32_t> number = EffectiveValue(setting, state);
  return number && StoredForm(setting, *number) == state &&
         ParseSettingValue(setting, std::to_wstring(*number)).has_value();
}

}  // namespace

std::wstring SettingsText(const std::vector<SettingState>& states,
                          size_t indent) {
  std::wstring text;
  for (const auto& [setting, stored] : states) {
    const std::optional<uint32_t> value = EffectiveValue(*setting, stored);
    text.append(indent, L' ');
    text += Left(setting->name, kNameWidth) +
            Left(NumberText(value), kNumberWidth) +
            OriginText(*setting, stored) + L"\n" +
            Wrapped(RemarkText(*setting, stored), indent + kDetailIndent) +
            Wrapped(MeaningText(*setting, value), indent + kDetailIndent);
  }
  return text;
}

Json SettingJson(const SettingState& state) {
  const auto& [setting, stored] = state;
  const std::optional<uint32_t> value = EffectiveValue(*setting, stored);
  return {
      {"name", ToUtf8(setting->name)},
      {"short", ToUtf8(setting->shortName)},
      {"value", JsonOrNull(value)},
      {"origin", OriginWord(OriginOf(*setting, stored))},
      {"stored", StoredJson(stored)},
      {"default", JsonOrNull(setting->ifAbsent)},
      {"remark", ToUtf8(RemarkText(*setting, stored))},
      {"meaning", ToUtf8(MeaningText(*setting, value))},
  };
}

std::optional<std::wstring> UndoCommand(const Setting& setting,
                                        const ValueState& before) {
  const std::wstring command = L"kovactl settings ";
  if (!before.present) return command + L"reset " + setting.shortName;
  if (IsPlain(setting, before)) {
    return command + L"set " + setting.shortName + L" " +
           NumberText(EffectiveValue(setting, before));
  }
  if (before.data.size() > kMostUndoBytes) return std::nullopt;
  return command + L"set " + setting.shortName + L" --raw " + RawForm(before);
}

std::wstring ChangeText(const Setting& setting, const ValueState& before,
                        const ValueState& after) {
  if (before == after) {
    return Wrapped(std::wstring(setting.name) + L" was already " +
                       StateText(setting, after) + L"; nothing was changed.",
                   0);
  }
  return Wrapped(std::wstring(setting.name) + L" is now " +
                     StateText(setting, after) + L": " +
                     MeaningText(setting, EffectiveValue(setting, after)) +
                     L".",
                 0) +
         Wrapped(L"It was " + StateText(setting, before) + L".", 0) +
         L"To undo: " + UndoCommand(setting, before).value_or(L"") + L"\n" +
         Wrapped(kTakesEffect, 0);
}

Json ChangeJson(const Setting& setting, const ValueState& before,
                const ValueState& after) {
  const auto undo = UndoCommand(setting, before);
  const bool isChanged = before != after;
  return {
      {"changed", isChanged},
      {"before", SettingJson({&setting, before})},
      {"after", SettingJson({&setting, after})},
      {"undo", isChanged && undo ? Json(ToUtf8(*undo)) : Json(nullptr)},
  };
}

}  // namespace kova::ctl
