// What every verb of the command line shares: the option --json, the report,
// and the way a failure ends the command.
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "common/exit_code.h"

namespace kova::ctl {

// Adds "--json" to `verb`; `json` must outlive the parse.
void AddJsonFlag(CLI::App& verb, bool& json);

// Writes `report` to standard output as indented JSON and a line end. Its texts
// are UTF-8; what is not becomes U+FFFD.
void ShowJson(const nlohmann::ordered_json& report);

// Writes `text` to standard output as it is.
void ShowText(std::wstring_view text);

// Ends the verb: writes the failure's line to standard error and throws
// CLI::RuntimeError with its code, which ends the parse; without a failure does
// nothing. For a verb's callback.
void EndVerb(const std::optional<Failure>& failure);

}  // namespace kova::ctl
