// The logger that the whole server writes to.
#pragma once

#include <memory>

#include "log/logger.h"

// The server's logger, "Corvane KOVA Server", made by the first call with
// Error, Warning and Info enabled unless the registry says otherwise. Lives
// until the module is unloaded. May be called on any thread; threads whose
// first calls meet all get the same logger. Callers tolerate null. Keeps the
// thread's last error.
std::shared_ptr<tk::Logger> GetServerLogger();

namespace kova {

// The same logger without a reference count: what a disabled log call can
// afford. Valid until the module is unloaded.
tk::Logger* ServerLogger();

}  // namespace kova
