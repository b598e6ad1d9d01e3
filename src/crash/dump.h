// A crash dump: when one may be written, what it says, and where it goes.
#pragma once

#include <cstdint>
#include <string>

// clang-format off
#include "base/windows_api.h"
#include <dbghelp.h>  // needs the other Windows headers before it
// clang-format on

// All of these may be called on any thread.

// The all-users application-data folder, made if it is missing; empty if it
// cannot be had. Loads Shell32.dll for the call.
std::wstring GetCommonAppDataFolder();

// The current user's folder for temporary files, as Windows gives it: with a
// backslash at its end. Empty if it cannot be had.
std::wstring GetTempFolder();

// Makes every level of `relativePath`, whose elements '/' or '\' separate,
// below `baseFolder`, where it is missing. False as soon as one cannot be
// made. False, and nothing is made, if `baseFolder` is not an existing folder
// or if a level would not be below it: the path has a root ("\x", "C:x") or
// more ".." than levels in front of them.
bool CreateSubdirectories(const std::wstring& baseFolder,
                          const std::wstring& relativePath);

namespace kova {

// Below the all-users application data or the temporary folder.
// Deliberate: the slashes stay as they are, in the log lines, too.
inline constexpr wchar_t kDumpFolder[] = L"Corvane/Drivers/Dump";

// Numbers of dump files run from 0 to this number minus 1.
inline constexpr int kDumpFileCount = 10000;

// Whether a dump may be written at `nowMs`, if the last attempt was made at
// `lastMs`: when more than 60000 ms lie between. Both in milliseconds of
// GetTickCount64(); `lastMs` is 0 where there was no attempt.
[[nodiscard]] bool MayWriteDump(uint64_t nowMs, uint64_t lastMs);

// The text that the log messages about a crash begin with. Address, code and
// flags are named only if there is an exception record; `pointers` may be null
// and so may be its members.
[[nodiscard]] std::wstring DescribeCrash(const EXCEPTION_POINTERS* pointers);

// The file name for `number`, which is at least 0 and below kDumpFileCount.
[[nodiscard]] std::wstring DumpFileName(int number);

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
