// A dump file together with what was read from it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_code.h"
#include "logs/dump_folders.h"
#include "logs/minidump.h"

namespace kova::ctl {

struct LoadedDump {
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

// Reads one file.
LoadedDump LoadDump(const DumpFile& file);

// Reads all dumps in the folders, the latest first. A folder that cannot be
// listed is a failure; one that is not there is none.
std::optional<Failure> LoadDumps(const std::vector<std::wstring>& folders,
                                 std::vector<LoadedDump>& dumps);

// Reads the one dump that `what` names in these folders: a number, a file name,
// or the path of a dump anywhere. Fails if there is none, or more than one.
std::optional<Failure> FindDump(const std::vector<std::wstring>& folders,
                                const std::wstring& what, LoadedDump& found);

}  // namespace kova::ctl
