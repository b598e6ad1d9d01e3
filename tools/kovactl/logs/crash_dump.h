// The server's crash dumps: where they lie, and each with what it says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/windows_api.h"
#include "common/exit_code.h"
#include "logs/minidump.h"

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

// Adds the dumps ("*.dmp") in `folder`; none if there is no such folder.
// Returns the error code; a missing folder is a success.
[[nodiscard]] unsigned long ListDumps(const std::wstring& folder,
                                      std::vector<DumpFile>& dumps);

struct CrashDump {
  DumpFile file;
  // The number in a name as the server gives it.
  std::optional<uint32_t> number;
  // Nothing if the file cannot be read or is no dump; then `problem` says why,
  // as in "is empty".
  std::optional<Minidump> dump;
  std::wstring problem;

  [[nodiscard]] std::wstring FileName() const;
  // When the crash was, in units of 100 ns since 1601, UTC: by the dump, or
  // else by the file's date.
  [[nodiscard]] uint64_t FileTime() const;
};

// The number in a dump's file name; nothing for names of any other form.
std::optional<uint32_t> DumpNumber(const std::wstring& fileName);

// Reads all dumps in the folders, the latest first. A folder that cannot be
// listed is a failure; one that is not there is none.
std::optional<Failure> LoadDumps(const std::vector<std::wstring>& folders,
                                 std::vector<CrashDump>& dumps);

// Reads the one dump that `what` names in these folders: a number, a file name,
// or the path of a dump anywhere. Fails if there is none, or more than one.
std::optional<Failure> FindDump(const std::vector<std::wstring>& folders,
                                const std::wstring& what, CrashDump& found);

}  // namespace kova::ctl
