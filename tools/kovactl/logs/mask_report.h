// What a command line does to a logger's mask, and masks as text of 80 columns
// and as JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_code.h"
#include "common/json.h"
#include "logs/log_mask.h"

namespace kova::ctl {

enum class MaskAction { kSet, kAdd, kRemove };

// The bits that the words of a command line name together. Refuses words that
// name nothing, and "none" beside other words or where it would do nothing.
struct MaskWords {
  uint32_t bits = 0;
  std::optional<Failure> failure;
};
MaskWords ReadMaskWords(MaskAction action,
                        const std::vector<std::wstring>& words);

// `mask` after the action.
uint32_t ChangedMask(MaskAction action, uint32_t mask, uint32_t bits);

// The command that gives the logger that mask.
std::wstring SetCommand(const std::wstring& logger, uint32_t mask);

// "kovactl log <verb> <word>", with the logger where it is not the server's.
std::wstring LogCommand(const std::wstring& verb, const std::wstring& word,
                        const std::wstring& logger);

// A logger's name and mask and where its channels go, several lines.
std::wstring LoggerText(const LoggerMask& logger);

// All of them, or that there are none.
std::wstring LoggersText(const std::vector<LoggerMask>& loggers);
Json LoggerJson(const LoggerMask& logger);
Json LoggersJson(const std::vector<LoggerMask>& loggers);

// What a command did to a mask.
struct MaskUpdate {
  LoggerMask before;
  LoggerMask now;
};
std::wstring UpdateText(const MaskUpdate& update);
Json UpdateJson(const MaskUpdate& update);

// The command that brings back exactly what was there before. Nothing where
// that is too long for a command, or nothing was there: then only the server's
// logger has a default to go back to.
std::optional<std::wstring> UndoCommand(const MaskUpdate& update);

// Longest delay until a running logger follows its mask.
inline constexpr uint32_t kFollowsWithinMs = 5000;

}  // namespace kova::ctl
