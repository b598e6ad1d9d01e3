// Where the server's crash dumps lie.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/windows_api.h"

namespace kova::ctl {

// The folders that the server may have used, the usual one first: below the
// all-users application data, and below this user's temporary files. They need
// not exist.
std::vector<std::wstring> DumpFolders();

struct DumpFile {
  std::wstring path;
  uint64_t sizeBytes = 0;
  // When it was last written: 100 ns units since 1601, UTC.
  uint64_t writtenFileTime = 0;
};

// The file at `path`, of which the system says `data`.
DumpFile Described(const std::wstring& path,
                   const WIN32_FILE_ATTRIBUTE_DATA& data);

// The dumps ("*.dmp") in `folder`, by name; none if there is no such folder.
// Returns the error code; a missing folder is a success.
[[nodiscard]] unsigned long ListDumps(const std::wstring& folder,
                                      std::vector<DumpFile>& dumps);

}  // namespace kova::ctl
