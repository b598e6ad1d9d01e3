#include "spooler/printers.h"

#include <cwchar>
#include <memory>
#include <new>
#include <string_view>

#include "base/ascii.h"
#include "base/handles.h"
#include "kova/extension.h"

namespace {

// And a terminator.
constexpr size_t kPackageCharacters = kova::kMostPackageCharacters + 1;

// The level that names the connections without asking their servers.
constexpr DWORD kNamesLevel = 4;
constexpr DWORD kNamed = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
// Printers may be added between two calls, but not for ever.
constexpr int kMostAttempts = 4;

// The spooler would look for a printer of such a name on another machine.
bool SpeaksOfAnotherMachine(std::wstring_view printerName) {
  return printerName.find(L'\\') != printerName.npos ||
         printerName.starts_with(L"//") ||
         printerName.find(L"://") != printerName.npos;
}

bool HasName(const BYTE* list, DWORD count, std::wstring_view printerName) {
  const auto* const printers = reinterpret_cast<const PRINTER_INFO_4W*>(list);
  for (DWORD i = 0; i < count; ++i) {
    const wchar_t* const name = printers[i].pPrinterName;
    if (name != nullptr && kova::EqualsNoCase(name, printerName)) return true;
  }
  return false;
}

// Whether this machine's spooler lists the printer under exactly that name.
// Where it does not tell, it does not.
bool IsListedHere(std::wstring_view printerName) {
  std::unique_ptr<BYTE[]> list;
  DWORD sizeBytes = 0;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    DWORD neededBytes = 0;
    DWORD count = 0;
    if (::EnumPrintersW(kNamed, nullptr, kNamesLevel, list.get(), sizeBytes,
                        &neededBytes, &count)) {
      return HasName(list.get(), count, printerName);
    }
    if (neededBytes <= sizeBytes) return false;
    sizeBytes = neededBytes;
    list.reset(new (std::nothrow) BYTE[sizeBytes]);
    if (list == nullptr) return false;
  }
  return false;
}

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
  auto* const name = const_cast<wchar_t*>(kova::kDriverPackageData);
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

constexpr DWORD kSharesLevel = 2;
constexpr DWORD kShared = PRINTER_ENUM_LOCAL | PRINTER_ENUM_SHARED;

}  // namespace

// Deliberate: a client names the printer, and the printer's machine names the
// library that is loaded here. Who could name any machine could have his own
// library loaded; so only machines that this one has a printer of will do.
bool MayOpenPrinter(const wchar_t* printerName) {
  // A null name would open the print server itself.
  if (printerName == nullptr) return false;
  return !SpeaksOfAnotherMachine(printerName) || IsListedHere(printerName);
}

std::wstring GetV3PrintMonitorDllFullPath(const wchar_t* printerName) {
  const std::wstring folder = GetDriverPackagePath(printerName);
  if (folder.empty()) return {};
  // Deliberate: a folder that ends in a backslash gets a second one.
  return folder + L"\\" + KOVA_EXTENSION_FILE_NAME;
}

std::wstring GetDriverPackagePath(const wchar_t* printerName) {
  if (!MayOpenPrinter(printerName)) return {};
  const kova::UniquePrinter printer = OpenToUse(printerName);
  return printer.IsValid() ? ReadPackage(printer.Get()) : std::wstring();
}

std::wstring ShareNameToPrinterName(const std::wstring& shareName) {
  DWORD neededBytes = 0;
  DWORD count = 0;
  ::EnumPrintersW(kShared, nullptr, kSharesLevel, nullptr, 0, &neededBytes,
                  &count);
  if (neededBytes == 0) return std::wstring();

  const std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[neededBytes]);
  if (buffer == nullptr) return std::wstring();
  if (!::EnumPrintersW(kShared, nullptr, kSharesLevel, buffer.get(),
                       neededBytes, &neededBytes, &count)) {
    return std::wstring();
  }
  const auto* const printers =
      reinterpret_cast<const PRINTER_INFO_2W*>(buffer.get());
  for (DWORD i = 0; i < count; ++i) {
    // A printer that is not shared may be listed, too, without a share name.
    const wchar_t* const share = printers[i].pShareName;
    if (share != nullptr && kova::EqualsNoCase(share, shareName)) {
      const wchar_t* const name = printers[i].pPrinterName;
      return name == nullptr ? std::wstring() : std::wstring(name);
    }
  }
  return std::wstring();
}
