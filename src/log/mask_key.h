// Where the loggers' masks live in the registry.
#pragma once

#include <string>

namespace kova {

// Below HKEY_LOCAL_MACHINE, for listing the values.
inline constexpr wchar_t kMaskKey[] =
    L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks";

}  // namespace kova

namespace tk {

// Below HKEY_LOCAL_MACHINE, the same with a trailing backslash. One REG_DWORD
// value per logger, named like the logger.
extern const std::wstring MaskKeyPath;

}  // namespace tk
