// What the spooler tells of printers: where a driver keeps its
// network-extension library, and which printer has a share name.
#pragma once

#include <string>

namespace kova {

// The printer data that names the driver's package folder, and the most
// characters that it may have.
inline constexpr wchar_t kDriverPackageData[] = L"DriverPackage";
inline constexpr size_t kMostPackageCharacters = 2047;

}  // namespace kova

// All of these may be called on any thread. None logs or throws.

// Whether the printer may be opened at all. Names come from the network: one
// that can lead to another machine (it holds a backslash or "://", or begins
// with "//") is unknown to the next two unless this machine's spooler lists
// a printer, its own or a connection of the host's user, under that very name,
// apart from the case of ASCII letters. False for a null name.
[[nodiscard]] bool MayOpenPrinter(const wchar_t* printerName);

// The full path of the extension library of the printer's driver: the driver's
// package folder as recorded, '\', "Corvane_V3_NetMon.dll". Empty if there is
// no such printer, it records no folder, or `printerName` is null. The file
// may not exist.
std::wstring GetV3PrintMonitorDllFullPath(const wchar_t* printerName);

// The printer's data value "DriverPackage", if it is a REG_SZ of at most 2047
// characters; otherwise, and for a null or unknown printer, empty.
std::wstring GetDriverPackagePath(const wchar_t* printerName);

// The name of the first local or shared printer, in the spooler's order, whose
// share name equals `shareName` (ASCII letters compare without case); empty if
// there is none or the spooler does not answer. Asks the spooler anew at every
// call.
[[nodiscard]] std::wstring ShareNameToPrinterName(
    const std::wstring& shareName);
