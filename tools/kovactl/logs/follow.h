// "kovactl log follow": shows debugger lines as they come.
#pragma once

#include <cstdint>
#include <optional>

#include "common/exit_code.h"
#include "common/output.h"
#include "logs/follow_line.h"

namespace kova::ctl {

struct FollowOptions {
  LineFilter filter;
  std::optional<uint32_t> seconds;
  ColorMode color = ColorMode::kAuto;
  bool json = false;
};

// Returns when the time is over or the user ends it. Lines go to standard
// output; what is worth knowing about them to standard error.
std::optional<Failure> FollowLog(const FollowOptions& options);

}  // namespace kova::ctl
