#include "common/verb.h"

#include "common/output.h"

namespace kova::ctl {
namespace {

constexpr int kIndent = 2;
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

void ShowJson(const Json& report) { ShowText(JsonText(report, kIndent)); }

void ShowText(std::wstring_view text) { Output(STD_OUTPUT_HANDLE).Write(text); }

void EndVerb(const std::optional<Failure>& failure) {
  if (!failure) return;
  WriteError(failure->text);
  throw CLI::RuntimeError(static_cast<int>(failure->code));
}

}  // namespace kova::ctl
