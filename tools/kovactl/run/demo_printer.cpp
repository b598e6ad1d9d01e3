#include "run/demo_printer.h"

#include <string_view>
#include <vector>

#include "base/handles.h"
#include "common/file_path.h"
#include "kova/extension.h"
#include "spooler/printers.h"

namespace kova::ctl {
namespace {

constexpr wchar_t kOwnDriverName[] = L"KOVA Demo Driver";

// Drivers that come with Windows, the plainest first. Which one it is does not
// matter: nothing is ever printed.
constexpr std::wstring_view kPreferredDrivers[] = {
    L"Generic / Text Only",
    L"Microsoft Print To PDF",
    L"Microsoft XPS Document Writer v4",
};

// The spooler's calls take texts that they do not change as non-const.
wchar_t* Text(const std::wstring& text) {
  return const_cast<wchar_t*>(text.c_str());
}
wchar_t* Text(const wchar_t* text) { return const_cast<wchar_t*>(text); }

Failure SpoolerFailure(const std::wstring& what, DWORD error) {
  return SystemFailure(ExitCode::kSpooler,
                       what + L"; is the print spooler running?", error);
}

std::vector<std::wstring> InstalledDrivers() {
  DWORD needed = 0;
  DWORD count = 0;
  ::EnumPrinterDriversW(nullptr, nullptr, 1, nullptr, 0, &needed, &count);
  std::vector<BYTE> buffer(needed);
  if (needed == 0 || !::EnumPrinterDriversW(nullptr, nullptr, 1, buffer.data(),
                                            needed, &needed, &count)) {
    return {};
  }
  const auto* drivers = reinterpret_cast<DRIVER_INFO_1W*>(buffer.data());
  std::vector<std::wstring> names;
  for (DWORD i = 0; i < count; ++i) names.emplace_back(drivers[i].pName);
  return names;
}

std::wstring PickDriver(const std::vector<std::wstring>& installed) {
  for (const std::wstring_view preferred : kPreferredDrivers) {
    for (const std::wstring& name : installed) {
      if (name == preferred) return name;
    }
  }
  return installed.empty() ? std::wstring() : installed.front();
}

// Wine brings a driver's file, but installs no driver that uses it; the file
// may exist inside Wine only, so there is no looking for it first.
bool AddWineDriver() {
  wchar_t system[MAX_PATH] = {};
  ::GetSystemDirectoryW(system, MAX_PATH);
  const std::wstring file = std::wstring(system) + L"\\wineps.drv";
  DRIVER_INFO_3W driver{};
  driver.cVersion = 3;
  driver.pName = Text(kOwnDriverName);
  driver.pDriverPath = Text(file);
  driver.pDataFile = Text(file);
  driver.pConfigFile = Text(file);
  driver.pDefaultDataType = Text(L"RAW");
  return ::AddPrinterDriverW(nullptr, 3, reinterpret_cast<BYTE*>(&driver)) !=
         FALSE;
}

std::wstring FindDriver() {
  std::wstring driver = PickDriver(InstalledDrivers());
  if (!driver.empty()) return driver;
  return AddWineDriver() ? kOwnDriverName : std::wstring();
}

UniquePrinter AddDemoPrinter(const std::wstring& driver) {
  PRINTER_INFO_2W printer{};
  printer.pPrinterName = Text(kDemoPrinterName);
  printer.pShareName = Text(kDemoShareName);
  printer.pPortName = Text(L"LPT1:");
  printer.pDriverName = Text(driver);
  printer.pComment = Text(kDemoComment);
  printer.pPrintProcessor = Text(L"winprint");
  printer.pDatatype = Text(L"RAW");
  printer.Attributes = PRINTER_ATTRIBUTE_SHARED;
  return UniquePrinter(
      ::AddPrinterW(nullptr, 2, reinterpret_cast<BYTE*>(&printer)));
}

UniquePrinter OpenDemoPrinter() {
  UniquePrinter printer;
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ALL_ACCESS};
  if (!::OpenPrinterW(Text(kDemoPrinterName), printer.Receive(), &defaults)) {
    return UniquePrinter();
  }
  return printer;
}

std::optional<Failure> OpenOrAdd(UniquePrinter& printer) {
  printer = OpenDemoPrinter();
  if (printer.IsValid()) return std::nullopt;
  const DWORD openError = ::GetLastError();
  if (openError != ERROR_INVALID_PRINTER_NAME) {
    return SpoolerFailure(L"cannot open the printer \"Demo Printer\"",
                          openError);
  }
  const std::wstring driver = FindDriver();
  if (driver.empty()) {
    return Failure{ExitCode::kSpooler,
                   L"no printer driver is installed that the demonstration "
                   L"printer could use; install any printer first"};
  }
  printer = AddDemoPrinter(driver);
  if (printer.IsValid()) return std::nullopt;
  const DWORD addError = ::GetLastError();
  return SpoolerFailure(
      L"cannot add the printer \"Demo Printer\" with driver "
      L"\"" +
          driver + L"\"",
      addError);
}

bool IsOurs(const UniquePrinter& printer) {
  DWORD needed = 0;
  ::GetPrinterW(printer.Get(), 2, nullptr, 0, &needed);
  std::vector<BYTE> buffer(needed);
  if (needed == 0 ||
      !::GetPrinterW(printer.Get(), 2, buffer.data(), needed, &needed)) {
    return false;
  }
  const auto* const info = reinterpret_cast<PRINTER_INFO_2W*>(buffer.data());
  return info->pComment != nullptr &&
         std::wstring_view(info->pComment) == kDemoComment;
}

std::optional<Failure> SetPackage(const UniquePrinter& printer,
                                  const std::wstring& folder) {
  const DWORD size = static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t));
  const DWORD error =
      ::SetPrinterDataW(printer.Get(), Text(kDriverPackageData), REG_SZ,
                        reinterpret_cast<BYTE*>(Text(folder)), size);
  if (error == ERROR_SUCCESS) return std::nullopt;
  return SpoolerFailure(
      L"cannot set the driver package of the printer \"Demo Printer\"", error);
}

}  // namespace

std::optional<Failure> EnsureDemoPrinter(const std::wstring& packageFolder) {
  const std::wstring library = packageFolder + L"\\" + KOVA_EXTENSION_FILE_NAME;
  if (!FileExists(library)) {
    return Failure{ExitCode::kMissingFile,
                   L"there is no extension " + library +
                       L" for the demonstration printer; build it first"};
  }
  UniquePrinter printer;
  if (auto failure = OpenOrAdd(printer)) return failure;
  return SetPackage(printer, packageFolder);
}

std::optional<Failure> RemoveDemoPrinter(DemoRemoval& outcome) {
  outcome = DemoRemoval::kNotThere;
  UniquePrinter printer = OpenDemoPrinter();
  if (!printer.IsValid()) {
    const DWORD error = ::GetLastError();
    if (error == ERROR_INVALID_PRINTER_NAME) return std::nullopt;
    return SpoolerFailure(L"cannot open the printer \"Demo Printer\"", error);
  }
  outcome = DemoRemoval::kNotOurs;
  if (!IsOurs(printer)) return std::nullopt;
  if (!::DeletePrinter(printer.Get())) {
    return SpoolerFailure(L"cannot remove the printer \"Demo Printer\"",
                          ::GetLastError());
  }
  printer.Reset();
  // The spooler keeps a driver that is not there or that others use.
  ::DeletePrinterDriverW(nullptr, nullptr, Text(kOwnDriverName));
  outcome = DemoRemoval::kRemoved;
  return std::nullopt;
}

}  // namespace kova::ctl
