// The whole command line: verbs, help, version, usage errors.
#pragma once

#include <string>
#include <vector>

namespace kova::ctl {

// Understands and carries out one command line. `arguments` are UTF-8, without
// the program's name. Returns the process's exit code.
int RunCommandLine(std::vector<std::string> arguments);

}  // namespace kova::ctl
