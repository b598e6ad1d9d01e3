#include "common/exit_code.h"

#include "base/windows_api.h"

namespace kova::ctl {
namespace {

struct Row {
  ExitCode code;
  const char* meaning;
};

constexpr Row kRows[] = {
    {ExitCode::kSuccess, "everything went well"},
    {ExitCode::kInternalError,
     "faults were found, or an error that has no code of its own"},
    {ExitCode::kWrongUsage, "the command line is wrong"},
    {ExitCode::kMissingFile, "a library was not found"},
    {ExitCode::kUnsuitableLibrary,
     "a library does not load or is not a server"},
    {ExitCode::kPortInUse, "another program uses the port"},
    {ExitCode::kAccessDenied, "administrator rights are missing"},
    {ExitCode::kNotListening, "the server started but does not listen"},
    {ExitCode::kSpooler, "the print spooler refused"},
    {ExitCode::kNotFound, "there is no such printer, setting, channel or dump"},
    {ExitCode::kNoAnswer, "the server does not answer"},
};

}  // namespace

std::wstring SystemErrorText(unsigned long error) {
  wchar_t text[512] = {};
  const DWORD length = ::FormatMessageW(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
          FORMAT_MESSAGE_MAX_WIDTH_MASK,
      nullptr, error, 0, text, static_cast<DWORD>(std::size(text)), nullptr);
  std::wstring line(text, length);
  // Some texts have a place for the name of the file at fault.
  if (const size_t at = line.find(L"%1"); at != std::wstring::npos) {
    line.replace(at, 2, L"the file");
  }
  line.erase(line.find_last_not_of(L" .\r\n") + 1);
  return line + (line.empty() ? L"error " : L", error ") +
         std::to_wstring(error);
}

Failure SystemFailure(ExitCode code, const std::wstring& what,
                      unsigned long error) {
  if (error == ERROR_ACCESS_DENIED || error == ERROR_PRIVILEGE_NOT_HELD) {
    return {ExitCode::kAccessDenied,
            what + L": access denied; run this from an administrator's prompt"};
  }
  return {code, what + L" (" + SystemErrorText(error) + L")"};
}

std::string ExitCodeHelp() {
  std::string help = "Exit codes:\n";
  for (const Row& row : kRows) {
    help += "  " + std::to_string(static_cast<int>(row.code)) + "  " +
            row.meaning + "\n";
  }
  help.pop_back();
  return help;
}

}  // namespace kova::ctl
