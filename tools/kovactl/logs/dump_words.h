// Words and columns that tables about dumps share.
#pragma once

#include <cstdint>
#include <string>

#include "logs/minidump.h"

namespace kova::ctl {

// `text` with blanks before or behind it up to `width`; longer texts stay.
std::wstring Right(const std::wstring& text, size_t width);
std::wstring Left(const std::wstring& text, size_t width);

// "412 KB"; at most 8 characters for every size below 1 PB.
std::wstring SizeText(uint64_t sizeBytes);

// "2026-11-21 04:51:57" in local time; units of 100 ns since 1601, UTC.
std::wstring LocalTimeText(uint64_t fileTime);
// "2026-11-21T04:51:57Z".
std::wstring UtcTimeText(uint64_t fileTime);

// "Windows 10.0 build 19045, x64, 4 processors".
std::wstring SystemText(const DumpSystem& system);

// The end of `text` in at most `width` characters, behind "..." if shortened.
std::wstring Tail(const std::wstring& text, size_t width);

}  // namespace kova::ctl
