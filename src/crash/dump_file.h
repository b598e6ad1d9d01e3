// Where a crash dump goes, and the writing of it.
#pragma once

#include <string>

#include "base/windows_api.h"

namespace kova {

// Makes the dump folder, below the all-users application data or, where that
// cannot be had, the temporary folder, and returns the path of the file that
// the next dump goes to: the first free number, or the last one where all are
// taken. A folder that cannot be made shows when the file is created.
[[nodiscard]] std::wstring ChooseDumpFile();

// Writes a minidump of this process, with data segments and memory that is
// referenced indirectly, to `file`. `pointers` is what the exception filter
// got on the calling thread. False, with the thread's last error set, if the
// dump cannot be written.
[[nodiscard]] bool WriteDump(HANDLE file, EXCEPTION_POINTERS* pointers);

}  // namespace kova
