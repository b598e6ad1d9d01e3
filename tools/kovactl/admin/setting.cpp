#include "admin/setting.h"

#include <algorithm>
#include <cstring>

#include "base/ascii.h"
#include "common/plain_text.h"
#include "common/registry_value.h"
#include "common/server_settings.h"
#include "common/utf8.h"
#include "server/server_settings.h"

namespace kova::ctl {
namespace {

// One that the server reads.
template <typename Number>
constexpr Setting Read(SettingId id, const NumberSetting<Number>& setting,
                       const wchar_t* shortName) {
  constexpr auto kSize = static_cast<uint32_t>(sizeof(Number));
  return {id,
          setting.name,
          shortName,
          kSize,
          kSize == 4 ? REG_DWORD : REG_BINARY,
          setting.ifAbsent};
}

constexpr Setting kSettings[] = {
    Read(SettingId::kPort, kPortSetting, L"port"),
    Read(SettingId::kTcpEnabled, kTcpEnabledSetting, L"tcp"),
    Read(SettingId::kNetworkCommunication, kCommunicationSetting,
         L"communication"),
    {SettingId::kNetworkBidirectional, kBidirectionalName, L"bidirectional",
     sizeof(uint8_t), REG_BINARY, std::nullopt},
};

struct SwitchWord {
  std::wstring_view word;
  uint32_t number;
};

constexpr SwitchWord kSwitchWords[] = {
    {L"0", 0},   {L"1", 1},  {L"on", 1},   {L"off", 0},
    {L"yes", 1}, {L"no", 0}, {L"true", 1}, {L"false", 0},
};

constexpr uint32_t kMostPort = 65535;
constexpr size_t kMostPortDigits = 5;

// `name` without what does not count, one text per word that it may begin with:
// "tcpenabled" and "enabled".
std::vector<std::wstring> Beginnings(std::wstring_view name) {
  std::vector<std::wstring> beginnings;
  bool isWordStart = true;
  for (const wchar_t c : name) {
    if (c == L' ' || c == L'-' || c == L'_') {
      isWordStart = true;
      continue;
    }
    if (isWordStart) beginnings.emplace_back();
    isWordStart = false;
    for (std::wstring& beginning : beginnings) beginning += FoldAscii(c);
  }
  return beginnings;
}

// All of `text`, as above; empty if nothing in it counts.
std::wstring Folded(std::wstring_view text) {
  const std::vector<std::wstring> beginnings = Beginnings(text);
  return beginnings.empty() ? std::wstring() : beginnings.front();
}

std::wstring PortMeaning(uint32_t port) {
  if (ListeningPort(port) == 0) {
    return L"Windows picks a free port at every start, and nothing tells which";
  }
  const std::wstring meaning =
      L"TCP port " + std::to_wstring(ListeningPort(port));
  return port <= kMostPort ? meaning
                           : meaning + L": only the low 16 bits count";
}

Failure KeyFailure(const wchar_t* what, const Setting& setting,
                   LSTATUS status) {
  return SystemFailure(
      ExitCode::kInternalError,
      std::wstring(what) + L" the setting \"" + setting.name + L"\"",
      static_cast<unsigned long>(status));
}

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

std::span<const Setting> AllSettings() { return kSettings; }

const Setting& SettingOf(SettingId id) {
  return *std::ranges::find(kSettings, id, &Setting::id);
}

std::vector<const Setting*> FindSettings(std::wstring_view text) {
  const std::wstring wanted = Folded(text);
  std::vector<const Setting*> found;
  if (wanted.empty()) return found;
  for (const Setting& setting : kSettings) {
    if (wanted == Folded(setting.name) ||
        EqualsNoCase(wanted, setting.shortName)) {
      return {&setting};
    }
    const auto names = Beginnings(setting.name);
    if (std::ranges::any_of(names, [&](const std::wstring& name) {
          return name.starts_with(wanted);
        })) {
      found.push_back(&setting);
    }
  }
  return found;
}

Origin OriginOf(const Setting& setting, const ValueState& stored) {
  if (!stored.present) return Origin::kAbsent;
  return stored.data.size() == setting.sizeBytes ? Origin::kStored
                                                 : Origin::kUnusable;
}

std::optional<uint32_t> EffectiveValue(const Setting& setting,
                                       const ValueState& stored) {
  if (OriginOf(setting, stored) != Origin::kStored) return setting.ifAbsent;
  uint32_t number = 0;
  std::memcpy(&number, stored.data.data(), stored.data.size());
  return number;
}

std::wstring OriginText(const Setting& setting, const ValueState& stored) {
  const wchar_t* const fallback = setting.ifAbsent ? L"default, " : L"";
  switch (OriginOf(setting, stored)) {
    case Origin::kAbsent:
      return fallback + std::wstring(L"nothing is stored");
    case Origin::kStored:
      return L"stored as " + ShapeText(stored);
    case Origin::kUnusable:
      return fallback + std::wstring(L"what is stored is passed over");
  }
  return {};
}

std::wstring RemarkText(const Setting& setting, const ValueState& stored) {
  switch (OriginOf(setting, stored)) {
    case Origin::kAbsent:
      return {};
    case Origin::kStored:
      return stored.type == setting.type
                 ? std::wstring()
                 : L"usually stored as " + TypeText(setting.type) +
                       L"; the type does not matter to the server";
    case Origin::kUnusable:
      return L"stored is " + ShapeText(stored) + L"; the server takes " +
             BytesText(setting.sizeBytes) + L" of any type";
  }
  return {};
}

std::wstring MeaningText(const Setting& setting,
                         std::optional<uint32_t> effective) {
  if (!effective) return L"the server has not written it yet";
  switch (setting.id) {
    case SettingId::kPort:
      return PortMeaning(*effective);
    case SettingId::kTcpEnabled:
      return *effective != 0 ? L"the server listens"
                             : L"the server does not listen at all";
    case SettingId::kNetworkCommunication:
      return *effective != 0
                 ? L"reachable on all of this machine's IPv4 addresses"
                 : L"reachable from this machine only (127.0.0.1)";
    case SettingId::kNetworkBidirectional:
      return L"\"Network Communication\" at the server's last start; the "
             L"server writes it, drivers read it";
  }
  return {};
}

std::optional<uint32_t> ParseSettingValue(const Setting& setting,
                                          std::wstring_view text) {
  if (setting.id == SettingId::kPort) {
    const auto port = ParseNumber(text, 10, kMostPortDigits);
    return port <= kMostPort ? port : std::nullopt;
  }
  for (const SwitchWord& row : kSwitchWords) {
    if (EqualsNoCase(text, row.word)) return row.number;
  }
  return std::nullopt;
}

std::wstring AcceptedValues(const Setting& setting) {
  return setting.id == SettingId::kPort ? L"a whole number from 0 to 65535"
                                        : L"1 (on) or 0 (off)";
}

ValueState StoredForm(const Setting& setting, uint32_t number) {
  ValueState state{true, setting.type, {}};
  state.data.resize(setting.sizeBytes);
  std::memcpy(state.data.data(), &number, setting.sizeBytes);
  return state;
}

std::wstring SettingsKeyText() {
  return L"HKEY_LOCAL_MACHINE\\" + SettingsKeyPath();
}

std::optional<Failure> ReadSetting(const Setting& setting, ValueState& stored) {
  UniqueRegistryKey key;
  LSTATUS status =
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, SettingsKeyPath().c_str(), 0,
                      KEY_READ, key.Receive());
  if (status == ERROR_FILE_NOT_FOUND) {
    stored = {};
    return std::nullopt;
  }
  if (status == ERROR_SUCCESS) {
    status = ReadValueState(key.Get(), setting.name, stored);
  }
  if (status == ERROR_SUCCESS) return std::nullopt;
  return KeyFailure(L"cannot read", setting, status);
}

std::optional<Failure> WriteSetting(const Setting& setting,
                                    const ValueState& stored) {
  UniqueRegistryKey key;
  LSTATUS status = ::RegCreateKeyExW(
      HKEY_LOCAL_MACHINE, SettingsKeyPath().c_str(), 0, nullptr,
      REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr, key.Receive(), nullptr);
  if (status == ERROR_SUCCESS) {
    status = WriteValueState(key.Get(), setting.name, stored);
  }
  if (status == ERROR_SUCCESS) return std::nullopt;
  return KeyFailure(L"cannot change", setting, status);
}

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
      {"origin", Json(OriginOf(*setting, stored))},
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
