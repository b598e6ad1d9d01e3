// The files that the user names, looked at before anything of them runs.
#pragma once

#include <optional>
#include <string>

#include "base/windows_api.h"
#include "common/exit_code.h"

namespace kova::ctl::check {

// The full path of the library that the user means by `path`: the file itself,
// or the extension in a package folder.
std::wstring LibraryPath(const std::wstring& path);

// Why the file cannot be a 64-bit extension, found without loading it.
std::optional<Failure> CheckLibraryFile(const std::wstring& path);

// Why the loader did not take it: it said `error`. Names what is missing.
Failure CannotLoad(const std::wstring& path, DWORD error);

// Why the bytes of the file cannot be handed over as a request: the server
// would never pass them on.
std::optional<Failure> CheckRequestFile(const std::wstring& path);

// The file's bytes; empty if it cannot be read.
std::string ReadWholeFile(const std::wstring& path);

}  // namespace kova::ctl::check
