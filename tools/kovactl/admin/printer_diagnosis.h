// Printers and their extension libraries, as far as they can be seen without
// loading anything, and why a request for one would be answered 400.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "admin/image_file.h"
#include "base/windows_api.h"
#include "common/exit_code.h"

namespace kova::ctl {

struct PrinterName {
  std::wstring name;
  std::wstring share;  // empty: not shared
};

// Every printer that the spooler lists, in its order. Fails only if the spooler
// does.
std::optional<Failure> ListPrinters(std::vector<PrinterName>& printers);

// The printer data "DriverPackage".
enum class PackageForm {
  kFolder,      // names a folder
  kNoPrinter,   // the printer cannot be opened
  kAbsent,      // there is no such data
  kUnreadable,  // the spooler does not give it
  kOtherType,   // not REG_SZ
  kTooLong,     // more than 2047 characters
  kEmpty,
};

// The file that the package folder should hold.
enum class LibraryForm {
  kNotLookedFor,  // no package folder
  kRelative,      // the folder is no full path
  kNoFolder,
  kNoFile,
  kUnreadable,
  kRead,
};

struct PrinterFacts {
  PackageForm package = PackageForm::kNoPrinter;
  DWORD packageError = ERROR_SUCCESS;  // of kNoPrinter and kUnreadable
  DWORD packageType = REG_NONE;        // of kOtherType
  std::wstring folder;                 // of kFolder
  std::wstring libraryPath;            // as the server puts it together
  LibraryForm library = LibraryForm::kNotLookedFor;
  DWORD libraryError = ERROR_SUCCESS;       // of kUnreadable
  ImageFacts image;                         // of kRead
  std::vector<std::string> missingImports;  // found nowhere
};

// What can be seen of the printer called `name`. Asks spooler and file system.
PrinterFacts LookAtPrinter(const std::wstring& name);

struct Diagnosis {
  // The first thing that makes the server answer 400: a word for programs,
  // which stays the same, and a sentence. "none" and empty if nothing is seen.
  std::wstring word;
  std::wstring fault;
  // What is odd but does not lead to a 400, or not surely; sentences.
  std::vector<std::wstring> remarks;

  [[nodiscard]] bool HasFault() const { return !fault.empty(); }
};

// In the order in which the server would meet the faults.
Diagnosis Diagnose(const PrinterFacts& facts);

// What a look from outside cannot tell, for the end of every report.
inline constexpr wchar_t kNotSeen[] =
    L"Not to be seen from here: whether an extension offers interface version "
    L"1, initialises and answers (kovactl probe tries that), what the host's "
    L"account may read, and whether the host failed to load the library "
    L"before: "
    L"such a failure lasts until the host process restarts, even if the "
    L"library "
    L"has been repaired since.";

}  // namespace kova::ctl
