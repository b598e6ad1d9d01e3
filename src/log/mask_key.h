// Where the loggers' masks live in the registry.
#pragma once

#include <string>

namespace tk {

// Below HKEY_LOCAL_MACHINE, with a trailing backslash. One REG_DWORD value per
// logger, named like the logger.
extern const std::wstring MaskKeyPath;

}  // namespace tk
