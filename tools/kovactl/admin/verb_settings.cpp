#include <memory>

#include "admin/setting.h"
#include "common/plain_text.h"
#include "common/registry_value.h"
#include "common/utf8.h"
#include "common/verb.h"
#include "verbs.h"

namespace kova::ctl {
namespace {

constexpr char kExamples[] =
    "Settings: port, tcp, communication, bidirectional, or any beginning of\n"
    "their full names (letter case does not count):\n"
    "  \"KOVA Server Port\"       0 to 65535; 0: Windows picks one at each "
    "start\n"
    "  \"TCP Enabled\"            1: the server listens, 0: it does not\n"
    "  \"Network Communication\"  1: reachable from everywhere, 0: from this\n"
    "                           machine only\n"
    "  \"Network Bidirectional\"  written by the server, for drivers\n\n"
    "Examples:\n"
    "  kovactl settings get\n"
    "  kovactl settings set port 8080\n"
    "  kovactl settings set \"TCP Enabled\" off\n"
    "  kovactl settings reset port";

struct Arguments {
  bool json = false;
  std::string name;
  std::string value;
  std::string raw;
};

std::wstring Quoted(const std::string& utf8) {
  return L"\"" + HarmlessLine(ToWide(utf8)) + L"\"";
}

std::wstring NamesOf(const std::vector<const Setting*>& settings) {
  std::wstring names;
  for (const Setting* const setting : settings) {
    names +=
        (names.empty() ? L"\"" : L", \"") + std::wstring(setting->name) + L"\"";
  }
  return names;
}

std::optional<Failure> Choose(const std::string& name,
                              const Setting*& setting) {
  const std::vector<const Setting*> found = FindSettings(ToWide(name));
  if (found.size() == 1) {
    setting = found.front();
    return std::nullopt;
  }
  if (!found.empty()) {
    return Failure{ExitCode::kWrongUsage, Quoted(name) + L" may be " +
                                              NamesOf(found) + L"; say which"};
  }
  return Failure{ExitCode::kNotFound,
                 L"there is no setting " + Quoted(name) +
                     L"; kovactl settings get lists all of them"};
}

std::optional<Failure> ReadAll(const std::string& name,
                               std::vector<SettingState>& states) {
  for (const Setting& setting : AllSettings()) {
    states.push_back({&setting, {}});
  }
  if (!name.empty()) {
    states.resize(1);
    if (auto failure = Choose(name, states[0].setting)) return failure;
  }
  for (auto& [setting, stored] : states) {
    if (auto failure = ReadSetting(*setting, stored)) return failure;
  }
  return std::nullopt;
}

void Get(const Arguments& arguments) {
  std::vector<SettingState> states;
  EndVerb(ReadAll(arguments.name, states));
  if (arguments.json) {
    ShowJson({{"key", ToUtf8(SettingsKeyText())},
              {"settings", JsonList(states, &SettingJson)},
              {"takesEffect", ToUtf8(kTakesEffect)}});
    return;
  }
  ShowText(SettingsKeyText() + L"\n\n" + SettingsText(states, 0) + L"\n" +
           Wrapped(kTakesEffect, 0));
}

// Only what the server reads is an administrator's to change.
std::optional<Failure> CheckChangeable(const Setting& setting) {
  if (setting.ifAbsent) return std::nullopt;
  return Failure{ExitCode::kWrongUsage,
                 std::wstring(L"\"") + setting.name +
                     L"\" is written by the server at every start; set "
                     L"\"Network Communication\" instead"};
}

std::optional<Failure> ParseNewValue(const Arguments& arguments,
                                     const Setting& setting,
                                     ValueState& after) {
  if (!arguments.raw.empty()) {
    const auto raw = ParseRawForm(ToWide(arguments.raw));
    if (raw) after = *raw;
    if (raw) return std::nullopt;
    return Failure{ExitCode::kWrongUsage,
                   Quoted(arguments.raw) +
                       L" is no type and bytes; write for instance "
                       L"REG_BINARY:0A0BFF"};
  }
  if (const auto number = ParseSettingValue(setting, ToWide(arguments.value))) {
    after = StoredForm(setting, *number);
    return std::nullopt;
  }
  if (arguments.value.empty()) {
    return Failure{ExitCode::kWrongUsage,
                   std::wstring(L"the new value of \"") + setting.name +
                       L"\" is missing; give " + AcceptedValues(setting)};
  }
  return Failure{ExitCode::kWrongUsage,
                 std::wstring(L"\"") + setting.name + L"\" cannot be " +
                     Quoted(arguments.value) + L"; give " +
                     AcceptedValues(setting)};
}

// A value that no command could bring back is not touched.
std::optional<Failure> CheckUndoable(const Setting& setting,
                                     const ValueState& before) {
  if (UndoCommand(setting, before)) return std::nullopt;
  return Failure{ExitCode::kWrongUsage,
                 std::wstring(L"\"") + setting.name + L"\" holds " +
                     BytesText(before.data.size()) +
                     L", too many to be put back by a command; export the key "
                     L"with reg export and delete the value with reg delete"};
}

void Change(const Arguments& arguments, const Setting& setting,
            const ValueState& after) {
  ValueState before;
  EndVerb(ReadSetting(setting, before));
  EndVerb(CheckUndoable(setting, before));
  if (before != after) EndVerb(WriteSetting(setting, after));
  if (arguments.json) {
    ShowJson(ChangeJson(setting, before, after));
  } else {
    ShowText(ChangeText(setting, before, after));
  }
}

void Set(const Arguments& arguments) {
  const Setting* setting = nullptr;
  EndVerb(Choose(arguments.name, setting));
  EndVerb(CheckChangeable(*setting));
  ValueState after;
  EndVerb(ParseNewValue(arguments, *setting, after));
  Change(arguments, *setting, after);
}

void Reset(const Arguments& arguments) {
  const Setting* setting = nullptr;
  EndVerb(Choose(arguments.name, setting));
  EndVerb(CheckChangeable(*setting));
  Change(arguments, *setting, ValueState());
}

CLI::App* AddPart(CLI::App& verb, Arguments& arguments, const char* word,
                  const char* help) {
  CLI::App* const part = verb.add_subcommand(word, help);
  AddJsonFlag(*part, arguments.json);
  part->footer(kExamples);
  return part;
}

CLI::Option* AddName(CLI::App& part, Arguments& arguments, const char* help) {
  return part.add_option("NAME", arguments.name, help)->type_name("");
}

}  // namespace

void AddSettingsVerb(CLI::App& app) {
  CLI::App* const verb =
      app.add_subcommand("settings", "Show and change the server's settings");
  const auto arguments = std::make_shared<Arguments>();
  verb->require_subcommand(1);
  verb->footer(kExamples);
  CLI::App* const get =
      AddPart(*verb, *arguments, "get", "Show all settings, or one");
  AddName(*get, *arguments, "The setting (default: all)");
  get->callback([arguments] { Get(*arguments); });

  CLI::App* const set = AddPart(*verb, *arguments, "set", "Change a setting");
  AddName(*set, *arguments, "The setting")->required();
  CLI::Option* const value =
      set->add_option("VALUE", arguments->value, "Its new value")
          ->type_name("");
  CLI::Option* const raw =
      set->add_option("--raw", arguments->raw,
                      "Store exactly these bytes, to undo a change")
          ->type_name("TYPE:HEX")
          ->excludes(value);
  value->excludes(raw);
  set->callback([arguments] { Set(*arguments); });

  CLI::App* const reset =
      AddPart(*verb, *arguments, "reset",
              "Delete a setting, so that its default holds");
  AddName(*reset, *arguments, "The setting")->required();
  reset->callback([arguments] { Reset(*arguments); });
}

}  // namespace kova::ctl
