// Runs programs that crash, and reads the dumps they leave.
#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "base/windows_api.h"

namespace kova::test {

// Runs the program `fileName`, which lies beside the test program, to its end
// and returns its exit code. A program that does not end within 60 s fails the
// test.
DWORD RunToEnd(const std::wstring& fileName, const std::wstring& arguments);

// Where the server's dumps go on this machine.
[[nodiscard]] std::filesystem::path DumpFolder();

// Knows which dumps have come since its construction, and removes them in the
// end.
class DumpWatch {
 public:
  DumpWatch();
  ~DumpWatch();

  DumpWatch(const DumpWatch&) = delete;
  DumpWatch& operator=(const DumpWatch&) = delete;

  [[nodiscard]] std::vector<std::filesystem::path> NewDumps() const;
  // The path that the next dump gets: the first free number.
  [[nodiscard]] std::filesystem::path NextDump() const;

 private:
  const std::set<std::filesystem::path> m_former;
};

// What a dump file says of the crash.
struct DumpFacts {
  uint32_t exceptionCode = 0;
  uint64_t exceptionAddress = 0;
  // The file name of the module that the address lies in; empty if it lies in
  // none.
  std::wstring module;
  // Whether the dump describes the thread that it says has faulted.
  bool hasFaultingThread = false;
};

// All zero and empty if `path` is no dump or names no exception.
[[nodiscard]] DumpFacts ReadDump(const std::filesystem::path& path);

}  // namespace kova::test
