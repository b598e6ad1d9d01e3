// Finds out whether a started server listens: its two functions report nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_code.h"
#include "common/server_settings.h"

namespace kova::ctl {

// Whether something accepts a connection on 127.0.0.1:`port`, asked once.
bool AcceptsConnections(uint32_t port);

// What a start came to. `errorLines` are the lines the server logged on channel
// Error while it started, `accepts` what AcceptsConnections says now: it alone
// proves little, because it may be another program that accepts.
std::optional<Failure> JudgeStart(const ServerSettings& settings,
                                  const std::vector<std::wstring>& errorLines,
                                  bool accepts);

}  // namespace kova::ctl
