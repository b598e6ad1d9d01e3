// Runs one test program and counts what it says.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/windows_api.h"

namespace kova::test {

struct Counts {
  int passed = 0;
  int failed = 0;
  int skipped = 0;

  bool operator==(const Counts&) const = default;
};

// What a GoogleTest program counted by its own summary, in the output
// `output`. One that ended without a summary, or with `exitCode` other than 0
// in spite of a good one, is one failure.
[[nodiscard]] Counts CountTests(std::string_view output, unsigned exitCode);

// Runs `program` in its own folder, with whatever it starts; its output goes to
// `log`. After `limitMs`, or when `stop` is set, all of them are ended. Returns
// the exit code of the program; of one that was ended, or could not be started,
// one that is not 0.
[[nodiscard]] unsigned RunProgram(const std::filesystem::path& program,
                                  const std::filesystem::path& log, HANDLE stop,
                                  unsigned long limitMs);

// `text` with every one of `names` (what, in place of it) replaced, whatever
// the case of A to Z. Names of less than three characters stay.
[[nodiscard]] std::string Anonymous(
    std::string text,
    const std::vector<std::pair<std::string, std::string>>& names);

}  // namespace kova::test
