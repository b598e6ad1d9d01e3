#include "registry/driver_location.h"

#include <cwchar>

#include "base/handles.h"

namespace {

constexpr size_t kPackageCharacters = 2048;

kova::UniquePrinter OpenToUse(const wchar_t* printerName) {
  PRINTER_DEFAULTSW defaults = {};
  defaults.DesiredAccess = PRINTER_ACCESS_USE;
  HANDLE printer = nullptr;
  if (!::OpenPrinterW(const_cast<wchar_t*>(printerName), &printer, &defaults) ||
      printer == INVALID_HANDLE_VALUE) {
    return {};
  }
  return kova::UniquePrinter(printer);
}

std::wstring ReadPackage(HANDLE printer) {
  wchar_t name[] = L"DriverPackage";
  wchar_t text[kPackageCharacters] = {};
  DWORD type = REG_NONE;
  DWORD neededBytes = 0;
  const DWORD error =
      ::GetPrinterDataW(printer, name, &type, reinterpret_cast<BYTE*>(text),
                        sizeof(text), &neededBytes);
  if (error != ERROR_SUCCESS || type != REG_SZ) return {};
  const size_t length = ::wcsnlen(text, kPackageCharacters);
  if (length == kPackageCharacters) return {};
  return std::wstring(text, length);
}

}  // namespace

std::wstring GetV3PrintMonitorDllFullPath(const wchar_t* printerName) {
  const std::wstring folder = GetDriverPackagePath(printerName);
  if (folder.empty()) return {};
  // Deliberate: a folder that ends in a backslash gets a second one.
  return folder + L"\\" + L"Corvane_V3_NetMon.dll";
}

std::wstring GetDriverPackagePath(const wchar_t* printerName) {
  // A null name would open the print server itself.
  if (printerName == nullptr) return {};
  const kova::UniquePrinter printer = OpenToUse(printerName);
  return printer.IsValid() ? ReadPackage(printer.Get()) : std::wstring();
}
