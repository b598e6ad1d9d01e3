#include <string>
#include <vector>

#include "base/windows_api.h"
// After the rest of Windows.
#include <shellapi.h>

#include "command_line.h"
#include "common/utf8.h"

// The narrow argument vector is in the ANSI code page, which cannot hold every
// path; the wide command line can.
int main() {
  int count = 0;
  wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; wide != nullptr && i < count; ++i) {
    arguments.push_back(kova::ctl::ToUtf8(wide[i]));
  }
  ::LocalFree(wide);
  return kova::ctl::RunCommandLine(std::move(arguments));
}
