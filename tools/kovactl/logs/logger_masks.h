// The loggers' masks in the registry.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/saved_value.h"

namespace kova::ctl {

// One value under the masks key.
struct LoggerMask {
  std::wstring name;
  ValueState value;

  // The mask that the logger reads from the value: it takes up to four bytes
  // of any type. Nothing if there is no value or a longer one; the logger then
  // keeps the mask it has and writes it back.
  [[nodiscard]] std::optional<uint32_t> Mask() const;
  // Whether the value has the type and size that loggers write.
  [[nodiscard]] bool IsWellFormed() const;
};

// Every value under the masks key, in its order; empty if there is no key.
// Returns the error code.
[[nodiscard]] LSTATUS ReadLoggerMasks(std::vector<LoggerMask>& loggers);

// The row called `name`, case aside; null if there is none. The pointer holds
// as long as `loggers`.
const LoggerMask* FindLogger(const std::vector<LoggerMask>& loggers,
                             const std::wstring& name);

// Writes `mask` as loggers do, a REG_DWORD called `name`, making the key if it
// is missing. Returns the error code.
[[nodiscard]] LSTATUS WriteLoggerMask(const std::wstring& name, uint32_t mask);

}  // namespace kova::ctl
