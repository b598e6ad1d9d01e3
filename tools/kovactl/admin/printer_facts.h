// Printers and their extension libraries, as far as they can be seen without
// loading anything.
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
  std::vector<std::string> missingImports;  // not in the system's folder
};

// What can be seen of the printer called `name`. Asks spooler and file system.
PrinterFacts LookAtPrinter(const std::wstring& name);

}  // namespace kova::ctl
