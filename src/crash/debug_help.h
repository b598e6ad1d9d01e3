// The debug help library's header, which needs the Windows headers before it.
#pragma once

// clang-format off
#include "base/windows_api.h"
#include <dbghelp.h>
// clang-format on
