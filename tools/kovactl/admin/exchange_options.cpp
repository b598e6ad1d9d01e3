#include "admin/exchange_options.h"

#include <string>

namespace kova::ctl {
namespace {

constexpr uint32_t kMostPort = 65535;
constexpr uint32_t kMostSeconds = 3600;

}  // namespace

void AddPortOption(CLI::App& verb, std::optional<uint32_t>& port) {
  verb.add_option("--port", port, "Ask port N (default: as the settings say)")
      ->type_name("N")
      ->check(CLI::Range(uint32_t{1}, kMostPort).description(""));
}

void AddTimeoutOption(CLI::App& verb, uint32_t& seconds) {
  verb.add_option(
          "--timeout", seconds,
          "Wait at most N seconds (default: " + std::to_string(seconds) + ")")
      ->type_name("N")
      ->check(CLI::Range(uint32_t{1}, kMostSeconds).description(""));
}

}  // namespace kova::ctl
