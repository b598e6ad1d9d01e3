#include "admin/printer_diagnosis.h"

#include "admin/value_text.h"
#include "common/utf8.h"
#include "dispatch/web_server_interface.h"

namespace kova::ctl {
namespace {

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

Fault ImageFault(const ImageFacts& image) {
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
  for (const NeededExport& row : kNeeded) {
    if (!image.Exports(row.name)) {
      return {row.word, L"the library does not export " + ToWide(row.name)};
    }
  }
  return {kNoFault, {}};
}

void AddRemarks(const PrinterFacts& facts, std::vector<std::wstring>& remarks) {
  if (facts.image.form != ImageForm::kSound) return;
  for (const std::string& library : facts.missingImports) {
    remarks.push_back(
        L"it needs " + ToWide(library) +
        L", which is not in the system folder; it does not load unless the "
        L"host process finds it elsewhere");
  }
  for (const OptionalExport& row : kOptional) {
    if (facts.image.Exports(row.name)) continue;
    remarks.push_back(L"it does not export " + ToWide(row.name) + L", " +
                      row.without);
  }
}

}  // namespace

Diagnosis Diagnose(const PrinterFacts& facts) {
  Fault fault = PackageFault(facts);
  if (fault.text.empty()) fault = LibraryFault(facts);
  const bool wasRead = facts.library == LibraryForm::kRead;
  if (fault.text.empty() && wasRead) fault = ImageFault(facts.image);
  Diagnosis diagnosis{fault.word, std::move(fault.text), {}};
  if (wasRead) AddRemarks(facts, diagnosis.remarks);
  return diagnosis;
}

}  // namespace kova::ctl
