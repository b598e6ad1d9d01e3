// Which fault the extension has.
#pragma once

#include <string_view>

namespace faulty {

// Whether the environment variable KOVA_FAULT is `name`. Read once, at the
// first call.
bool Has(std::string_view name);

// Crashes, throws, hangs or ends the process if KOVA_FAULT is "crash-",
// "throw-", "hang-" or "exit-" followed by `entry`.
void Misbehave(std::string_view entry);

}  // namespace faulty
