// What happens when an exception escapes the server's code.
#pragma once

#include <cstdint>

#include "base/windows_api.h"

namespace CrashUtility {

// The filter of the guard around the exports and the server's threads. Always
// returns 0 (EXCEPTION_CONTINUE_SEARCH): the exception goes on.
int32_t RecordSEH(EXCEPTION_POINTERS* pointers);

}  // namespace CrashUtility
