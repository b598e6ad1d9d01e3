// How a failed command ends: one line for the user, one code for scripts.
#pragma once

#include <string>

namespace kova::ctl {

// The program's exit codes. They are documented and scripts rely on them: new
// ones are added at the end, none is given a new meaning.
enum class ExitCode : int {
  kSuccess = 0,
  kInternalError = 1,
  kWrongUsage = 2,
  kMissingFile = 3,
  kUnsuitableLibrary = 4,
  kPortInUse = 5,
  kAccessDenied = 6,
  kNotListening = 7,
  kSpooler = 8,
  kNotFound = 9,
  kNoAnswer = 10,
};

// Why a command cannot go on. `text` is one sentence in two halves, what went
// wrong and what to do about it, without a line end.
struct Failure {
  ExitCode code;
  std::wstring text;
};

// The text of a Windows error as the system words it, followed by its number;
// never empty, no line end.
std::wstring SystemErrorText(unsigned long error);

// The failure of a call with the error `error`: kAccessDenied with advice when
// rights are missing, else `code`. `what` says what could not be done.
Failure SystemFailure(ExitCode code, const std::wstring& what,
                      unsigned long error);

// The table of exit codes for the help text, one line each, indented, without
// a line end after the last.
std::string ExitCodeHelp();

}  // namespace kova::ctl
