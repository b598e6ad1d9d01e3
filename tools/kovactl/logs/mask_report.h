// Loggers and their masks, as text of 80 columns and as JSON.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "logs/logger_masks.h"

namespace kova::ctl {

// A logger's name and mask and where its channels go, several lines.
std::wstring LoggerText(const LoggerMask& logger);

// All of them, or that there are none.
std::wstring LoggersText(const std::vector<LoggerMask>& loggers);
nlohmann::ordered_json LoggersJson(const std::vector<LoggerMask>& loggers);

// What a command did to a mask.
struct MaskUpdate {
  LoggerMask before;
  uint32_t now = 0;
};
std::wstring UpdateText(const MaskUpdate& update);
nlohmann::ordered_json UpdateJson(const MaskUpdate& update);

// The command that brings back what was there before. Nothing where no mask
// could be read: then only the server's logger has a default to go back to.
std::optional<std::wstring> UndoCommand(const MaskUpdate& update);

// Longest delay until a running logger follows its mask.
inline constexpr uint32_t kFollowsWithinMs = 5000;

}  // namespace kova::ctl
