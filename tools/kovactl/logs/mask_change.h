// What a command line does to a mask. Decisions without effects.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_code.h"

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

}  // namespace kova::ctl
