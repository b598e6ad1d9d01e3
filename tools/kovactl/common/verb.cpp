#include "common/verb.h"

#include <utility>

#include "common/output.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

// What the one verb of this process has found.
Json& KeptReport() {
  static Json report = Json::object();
  return report;
}

constexpr uint32_t kMostPort = 65535;
constexpr uint32_t kMostTimeoutSeconds = 3600;

}  // namespace

void AddJsonFlag(CLI::App& verb, bool& json) {
  verb.add_flag("--json", json, "Write JSON for programs, not text for people");
}

void AddPortOption(CLI::App& verb, std::optional<uint32_t>& port) {
  verb.add_option("--port", port, "Ask port N (default: as the settings say)")
      ->type_name("N")
      ->check(Limits(1, kMostPort));
}

void AddTimeoutOption(CLI::App& verb, uint32_t& seconds) {
  verb.add_option(
          "--timeout", seconds,
          "Wait at most N seconds (default: " + std::to_string(seconds) + ")")
      ->type_name("N")
      ->check(Limits(1, kMostTimeoutSeconds));
}

CLI::Validator Limits(uint32_t least, uint32_t most) {
  return CLI::Range(least, most).description("");
}

void ShowJson(Json report) { KeptReport() = std::move(report); }

void ShowOutcome(const std::wstring& verb, int exitCode,
                 const std::wstring& error, int indent) {
  Json json = {
      {"schema", kJsonSchema},
      {"verb", ToUtf8(verb)},
      {"exitCode", exitCode},
      {"error", error.empty() ? Json(nullptr) : Json(ToUtf8(error))},
  };
  json.update(KeptReport());
  ShowText(JsonText(json, indent));
}

void ShowText(std::wstring_view text) { Output(STD_OUTPUT_HANDLE).Write(text); }

void EndVerb(const std::optional<Failure>& failure) {
  if (!failure) return;
  WriteError(failure->text);
  throw VerbError(*failure);
}

}  // namespace kova::ctl
