// What a crash dump is called, when one may be written, and how the crash is
// described: decisions without effects.
#pragma once

#include <cstdint>
#include <string>

#include "base/windows_api.h"

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

}  // namespace kova
