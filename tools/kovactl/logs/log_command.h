// "kovactl log show|set|add|remove": what they do to the registry.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/exit_code.h"
#include "logs/mask_change.h"

namespace kova::ctl {

// Shows the logger called `name` (case aside), or every logger if it is empty.
std::optional<Failure> ShowLog(const std::wstring& name, bool json);

// Changes that logger's mask and says what it did. Loggers that have no mask
// are refused, for their names would be typing errors; the server's is made.
std::optional<Failure> ChangeLog(MaskAction action,
                                 const std::vector<std::wstring>& words,
                                 const std::wstring& name, bool json);

}  // namespace kova::ctl
