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

// Expects what every failed command gives: that exit code and, on standard
// error, one line that begins as all do and has `says` in it.
void ExpectFailure(const ProgramResult& result, unsigned long code,
                   const std::string& says);
// And nothing on standard output.
void ExpectRefusal(const ProgramResult& result, unsigned long code,
                   const std::string& says);

}  // namespace kova::ctl::test
