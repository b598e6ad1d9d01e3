// What the verbs of the command line share: options, the report, and the way a
// failure ends the command.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
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

// The version of what "--json" writes: it grows when something that programs
// read goes or changes its meaning. docs/kovactl.schema.json describes it.
inline constexpr int kJsonSchema = 1;

// Keeps `report`, an object, until ShowOutcome writes it.
void ShowJson(Json report);

// Writes how the command line ended to standard output as JSON and a line end:
// schema, verb, exit code, error (null after a success) and the members of the
// report, if one was kept. `indent` is JsonText's.
void ShowOutcome(const std::wstring& verb, int exitCode,
                 const std::wstring& error, int indent);

// Writes `text` to standard output as it is.
void ShowText(std::wstring_view text);

// A verb that failed; its line was written to standard error.
class VerbError : public CLI::RuntimeError {
 public:
  explicit VerbError(const Failure& failure)
      : CLI::RuntimeError(static_cast<int>(failure.code)),
        m_text(failure.text) {}
  [[nodiscard]] const std::wstring& Text() const { return m_text; }

 private:
  std::wstring m_text;
};

// Ends the verb: writes the failure's line to standard error and throws
// VerbError, which ends the parse; without a failure does nothing. For a verb's
// callback.
void EndVerb(const std::optional<Failure>& failure);

}  // namespace kova::ctl
