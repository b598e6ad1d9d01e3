// The server's state as people and programs read it.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "admin/status_facts.h"

namespace kova::ctl {

// What was found on the port, as a sentence.
std::wstring ReachText(const StatusFacts& facts);

// All of it, in 80 columns but for long paths.
std::wstring StatusText(const StatusFacts& facts);
nlohmann::ordered_json StatusJson(const StatusFacts& facts);

// Why the status is not well: the server does not answer.
std::optional<Failure> StatusFailure(const StatusFacts& facts);

}  // namespace kova::ctl
