// What the verbs of the command line share: options, the report, and the way a
// failure ends the command.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string_view>

#include "common/exit_code.h"
#include "common/json.h"

namespace kova::ctl {

// What an option is told to fill must live until the command line is parsed.

// Adds "--json" to `verb`.
void AddJsonFlag(CLI::App& verb, bool& json);

// Adds "--port N", 1 to 65535, for verbs that ask the server. `port` stays
// empty if it is not given: then the settings decide.
void AddPortOption(CLI::App& verb, std::optional<uint32_t>& port);

// Adds "--timeout N", 1 to 3600 seconds. `seconds` holds the default, which the
// help shows.
void AddTimeoutOption(CLI::App& verb, uint32_t& seconds);

// Refuses numbers that are not from `least` to `most`. The help says nothing of
// it: the library would show the limits in a notation of its own.
CLI::Validator Limits(uint32_t least, uint32_t most);

// Writes `report` to standard output as indented JSON and a line end.
void ShowJson(const Json& report);

// Writes `text` to standard output as it is.
void ShowText(std::wstring_view text);

// Ends the verb: writes the failure's line to standard error and throws
// CLI::RuntimeError with its code, which ends the parse; without a failure does
// nothing. For a verb's callback.
void EndVerb(const std::optional<Failure>& failure);

}  // namespace kova::ctl
