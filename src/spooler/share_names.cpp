#include "spooler/share_names.h"

#include <memory>
#include <new>

#include "base/ascii.h"
#include "base/windows_api.h"

namespace {

constexpr DWORD kPrinters = PRINTER_ENUM_LOCAL | PRINTER_ENUM_SHARED;
constexpr DWORD kLevel = 2;

}  // namespace

std::wstring ShareNameToPrinterName(const std::wstring& shareName) {
  DWORD neededBytes = 0;
  DWORD count = 0;
  ::EnumPrintersW(kPrinters, nullptr, kLevel, nullptr, 0, &neededBytes, &count);
  if (neededBytes == 0) return std::wstring();

  const std::unique_ptr<BYTE[]> buffer(new (std::nothrow) BYTE[neededBytes]);
  if (buffer == nullptr) return std::wstring();
  if (!::EnumPrintersW(kPrinters, nullptr, kLevel, buffer.get(), neededBytes,
                       &neededBytes, &count)) {
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
