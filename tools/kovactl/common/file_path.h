// Where files are, as the user and as this program see it.
#pragma once

#include <string>

namespace kova::ctl {

// The folder this program lies in, without a trailing separator.
std::wstring ProgramFolder();

// `path` made absolute. A relative one counts from the current folder, as its
// user means it; the loader and the spooler would look elsewhere.
std::wstring FullPath(const std::wstring& path);

// Whether `path` names a file (not a folder) that is there.
bool FileExists(const std::wstring& path);
// Whether it names a folder that is there.
bool FolderExists(const std::wstring& path);

// What follows the last separator of `path`.
std::wstring FileName(const std::wstring& path);

}  // namespace kova::ctl
