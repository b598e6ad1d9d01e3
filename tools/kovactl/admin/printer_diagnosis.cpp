#include "admin/printer_diagnosis.h"

#include "base/handles.h"
#include "common/file_path.h"
#include "common/random_access_file.h"
#include "common/registry_value.h"
#include "common/utf8.h"
#include "dispatch/web_server_interface.h"
#include "spooler/printers.h"

namespace kova::ctl {
namespace {

// Network printers of this user, too: the server opens those that its host's
// account is connected to.
constexpr DWORD kPrinters = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
constexpr DWORD kLevel = 2;
constexpr DWORD kPackageBytes = 4096;

Failure SpoolerFailure(DWORD error) {
  return SystemFailure(
      ExitCode::kSpooler,
      L"cannot list the printers; is the print spooler running?", error);
}

UniquePrinter OpenToUse(const std::wstring& name) {
  if (!MayOpenPrinter(name.c_str())) {
    ::SetLastError(ERROR_INVALID_PRINTER_NAME);
    return {};
  }
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ACCESS_USE};
  UniquePrinter printer;
  if (!::OpenPrinterW(const_cast<wchar_t*>(name.c_str()), printer.Receive(),
                      &defaults)) {
    return {};
  }
  return printer;
}

// Why the server finds no package folder.
void ExplainPackage(const std::wstring& name, PrinterFacts& facts) {
  const UniquePrinter printer = OpenToUse(name);
  if (!printer.IsValid()) {
    facts.packageError = ::GetLastError();
    facts.package = PackageForm::kNoPrinter;
    return;
  }
  std::vector<BYTE> data(kPackageBytes);
  DWORD type = REG_NONE;
  DWORD needed = 0;
  const DWORD error =
      ::GetPrinterDataW(printer.Get(), const_cast<wchar_t*>(kDriverPackageData),
                        &type, data.data(), kPackageBytes, &needed);
  facts.packageType = type;
  if (error == ERROR_FILE_NOT_FOUND) {
    facts.package = PackageForm::kAbsent;
  } else if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) {
    facts.packageError = error;
    facts.package = PackageForm::kUnreadable;
  } else if (error == ERROR_SUCCESS && type != REG_SZ) {
    facts.package = PackageForm::kOtherType;
  } else if (error == ERROR_MORE_DATA || needed >= kPackageBytes) {
    facts.package = PackageForm::kTooLong;
  } else {
    facts.package = PackageForm::kEmpty;
  }
}

bool IsFullPath(const std::wstring& path) {
  const bool hasDrive = path.size() >= 3 && path[1] == L':' &&
                        (path[2] == L'\\' || path[2] == L'/');
  return hasDrive || path.starts_with(L"\\\\");
}

LibraryForm FormOfMissing(const std::wstring& folder, DWORD error) {
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND &&
      error != ERROR_INVALID_NAME) {
    return LibraryForm::kUnreadable;
  }
  return FolderExists(folder) ? LibraryForm::kNoFile : LibraryForm::kNoFolder;
}

void LookAtLibrary(PrinterFacts& facts) {
  if (!IsFullPath(facts.folder)) {
    facts.library = LibraryForm::kRelative;
    return;
  }
  DiskFile file;
  const DWORD error = file.Open(facts.libraryPath);
  if (error != ERROR_SUCCESS) {
    facts.libraryError = error;
    facts.library = FormOfMissing(facts.folder, error);
    return;
  }
  facts.library = LibraryForm::kRead;
  facts.image = ReadImage(file);
  facts.missingImports = MissingImports(facts.image);
}

struct Fault {
  const wchar_t* word;
  std::wstring text;
};

constexpr wchar_t kNoFault[] = L"none";

Fault PackageFault(const PrinterFacts& facts) {
  switch (facts.package) {
    case PackageForm::kFolder:
      return {kNoFault, {}};
    case PackageForm::kNoPrinter:
      return {L"no-printer", facts.packageError == ERROR_INVALID_PRINTER_NAME
                                 ? L"the spooler knows no printer of that name"
                                 : L"the spooler does not open the printer (" +
                                       SystemErrorText(facts.packageError) +
                                       L")"};
    case PackageForm::kAbsent:
      return {L"no-package",
              L"the printer has no printer data \"DriverPackage\": its driver "
              L"brings no network extension, or was not set up completely"};
    case PackageForm::kUnreadable:
      return {L"package-unreadable",
              L"the spooler does not give the printer data \"DriverPackage\" "
              L"(" +
                  SystemErrorText(facts.packageError) + L")"};
    case PackageForm::kOtherType:
      return {L"package-type", L"the printer data \"DriverPackage\" is " +
                                   TypeText(facts.packageType) +
                                   L", but the server takes REG_SZ only"};
    case PackageForm::kTooLong:
      return {L"package-too-long",
              L"the printer data \"DriverPackage\" has more than the 2047 "
              L"characters that the server takes"};
    case PackageForm::kEmpty:
      return {L"package-empty", L"the printer data \"DriverPackage\" is empty"};
  }
  return {kNoFault, {}};
}

Fault LibraryFault(const PrinterFacts& facts) {
  switch (facts.library) {
    case LibraryForm::kNotLookedFor:
    case LibraryForm::kRead:
      return {kNoFault, {}};
    case LibraryForm::kRelative:
      return {L"folder-relative",
              L"the package folder is no full path: where it leads depends on "
              L"the host process"};
    case LibraryForm::kNoFolder:
      return {L"no-folder", L"the package folder does not exist"};
    case LibraryForm::kNoFile:
      return {L"no-library",
              L"the package folder holds no " KOVA_EXTENSION_FILE_NAME};
    case LibraryForm::kUnreadable:
      return {L"library-unreadable", L"the library cannot be read (" +
                                         SystemErrorText(facts.libraryError) +
                                         L")"};
  }
  return {kNoFault, {}};
}

struct NeededExport {
  const char* name;
  const wchar_t* word;
};

// In the order in which the server calls them.
constexpr NeededExport kNeeded[] = {
    {kVersionsExport, L"no-versions-export"},
    {kHandleExport, L"no-handle-export"},
    {kLengthExport, L"no-length-export"},
    {kCopyExport, L"no-copy-export"},
};

struct OptionalExport {
  const char* name;
  const wchar_t* without;
};

constexpr OptionalExport kOptional[] = {
    {kInitializeExport, L"so it is called without having been initialised"},
    {kReleaseExport, L"so its answers are never released"},
    {kRestartExport, L"so it cannot ask for a restart of the server"},
};

Fault ImageFault(const PrinterFacts& facts) {
  const ImageFacts& image = facts.image;
  switch (image.form) {
    case ImageForm::kSound:
      break;
    case ImageForm::kNoImage:
      return {L"no-image", L"the library is no Windows library at all"};
    case ImageForm::kForeign:
      return {L"other-machine", L"the library is " +
                                    MachineText(image.machine) +
                                    L", but the server is 64-bit (x64)"};
    case ImageForm::kCutShort:
      return {L"cut-short", L"the library's file is damaged or cut short"};
  }
  if (!facts.missingImports.empty()) {
    return {L"missing-import",
            L"the library needs " + ToWide(facts.missingImports.front()) +
                L", which is neither in the system folder nor on the path, so "
                L"it loads only in a host program that has it in its own "
                L"folder"};
  }
  for (const NeededExport& row : kNeeded) {
    if (!image.Exports(row.name)) {
      return {row.word, L"the library does not export " + ToWide(row.name)};
    }
  }
  return {kNoFault, {}};
}

void AddRemarks(const PrinterFacts& facts, std::vector<std::wstring>& remarks) {
  if (facts.image.form != ImageForm::kSound) return;
  for (const OptionalExport& row : kOptional) {
    if (facts.image.Exports(row.name)) continue;
    remarks.push_back(L"it does not export " + ToWide(row.name) + L", " +
                      row.without);
  }
}

}  // namespace

std::optional<Failure> ListPrinters(std::vector<PrinterName>& printers) {
  DWORD needed = 0;
  DWORD count = 0;
  if (!::EnumPrintersW(kPrinters, nullptr, kLevel, nullptr, 0, &needed,
                       &count) &&
      ::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    return SpoolerFailure(::GetLastError());
  }
  std::vector<BYTE> buffer(needed);
  if (needed == 0) return std::nullopt;
  if (!::EnumPrintersW(kPrinters, nullptr, kLevel, buffer.data(), needed,
                       &needed, &count)) {
    return SpoolerFailure(::GetLastError());
  }
  const auto* const rows =
      reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    if (rows[i].pPrinterName == nullptr) continue;
    // A printer that is not shared may have no share name at all.
    const wchar_t* const share = rows[i].pShareName;
    printers.push_back({rows[i].pPrinterName, share == nullptr ? L"" : share});
  }
  return std::nullopt;
}

PrinterFacts LookAtPrinter(const std::wstring& name) {
  PrinterFacts facts;
  facts.folder = GetDriverPackagePath(name.c_str());
  if (facts.folder.empty()) {
    ExplainPackage(name, facts);
    return facts;
  }
  facts.package = PackageForm::kFolder;
  facts.libraryPath = GetV3PrintMonitorDllFullPath(name.c_str());
  LookAtLibrary(facts);
  return facts;
}

Diagnosis Diagnose(const PrinterFacts& facts) {
  Fault fault = PackageFault(facts);
  if (fault.text.empty()) fault = LibraryFault(facts);
  const bool wasRead = facts.library == LibraryForm::kRead;
  if (fault.text.empty() && wasRead) fault = ImageFault(facts);
  Diagnosis diagnosis{fault.word, std::move(fault.text), {}};
  if (wasRead) AddRemarks(facts, diagnosis.remarks);
  return diagnosis;
}

}  // namespace kova::ctl
