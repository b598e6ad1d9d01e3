// Folders of the machine and of its user, and the making of folders.
#pragma once

#include <string>

// All of these may be called on any thread. None logs or throws.

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
