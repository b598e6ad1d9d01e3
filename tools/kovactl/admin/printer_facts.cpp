#include "admin/printer_facts.h"

#include "base/ascii.h"
#include "base/handles.h"
#include "common/file_path.h"
#include "common/utf8.h"
#include "logs/file_source.h"
#include "spooler/driver_location.h"

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
  const DWORD attributes = ::GetFileAttributesW(folder.c_str());
  const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES &&
                        (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return isFolder ? LibraryForm::kNoFile : LibraryForm::kNoFolder;
}

// The names of contracts that the loader maps to other libraries.
bool IsApiSet(const std::string& library) {
  const std::string_view start = std::string_view(library).substr(0, 4);
  return EqualsNoCase(start, "api-") || EqualsNoCase(start, "ext-");
}

std::vector<std::string> NotInSystemFolder(
    const std::vector<std::string>& libraries) {
  wchar_t folder[MAX_PATH] = {};
  ::GetSystemDirectoryW(folder, MAX_PATH);
  std::vector<std::string> missing;
  for (const std::string& library : libraries) {
    if (!IsApiSet(library) &&
        !FileExists(std::wstring(folder) + L"\\" + ToWide(library))) {
      missing.push_back(library);
    }
  }
  return missing;
}

void LookAtLibrary(PrinterFacts& facts) {
  if (!IsFullPath(facts.folder)) {
    facts.library = LibraryForm::kRelative;
    return;
  }
  FileSource file;
  const DWORD error = file.Open(facts.libraryPath);
  if (error != ERROR_SUCCESS) {
    facts.libraryError = error;
    facts.library = FormOfMissing(facts.folder, error);
    return;
  }
  facts.library = LibraryForm::kRead;
  facts.image = ReadImage(file);
  facts.missingImports = NotInSystemFolder(facts.image.imports);
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

}  // namespace kova::ctl
