// For tests: runs a program and waits for its end.
#pragma once

#include <string>

namespace kova::ctl::test {

struct ProgramResult {
  unsigned long exitCode = 0xFFFFFFFF;
  std::string output;
  std::string errors;
};

// Runs the command line `arguments` of the built kovactl.exe, without input,
// and waits until it ends.
ProgramResult RunKovactl(const std::wstring& arguments);

}  // namespace kova::ctl::test
