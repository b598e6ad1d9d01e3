// The options of the verbs that ask the server something over the network.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>

namespace kova::ctl {

// "--port N", 1 to 65535. `port` stays empty if it is not given: then the
// settings decide. It must live as long as `verb`.
void AddPortOption(CLI::App& verb, std::optional<uint32_t>& port);

// "--timeout N", 1 to 3600 seconds. `seconds` holds the default, which the help
// shows. It must live as long as `verb`.
void AddTimeoutOption(CLI::App& verb, uint32_t& seconds);

}  // namespace kova::ctl
