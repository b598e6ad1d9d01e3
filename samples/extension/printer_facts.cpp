#include "printer_facts.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
// clang-format off
#include <windows.h>
#include <winspool.h>
// clang-format on

#include <memory>
#include <type_traits>
#include <vector>

namespace sample {
namespace {

std::string ToUtf8(const wchar_t* text) {
  if (text == nullptr || *text == L'\0') return {};
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) return {};
  std::string utf8(static_cast<size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr,
                        nullptr);
  utf8.pop_back();
  return utf8;
}

std::wstring ToWide(const std::string& utf8) {
  const int length = static_cast<int>(utf8.size());
  const int size =
      ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  std::wstring text(static_cast<size_t>(size), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), size);
  return text;
}

struct PrinterCloser {
  void operator()(HANDLE printer) const { ::ClosePrinter(printer); }
};
using Printer = std::unique_ptr<std::remove_pointer_t<HANDLE>, PrinterCloser>;

Printer Open(const std::wstring& name) {
  HANDLE printer = nullptr;
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ACCESS_USE};
  if (!::OpenPrinterW(const_cast<wchar_t*>(name.c_str()), &printer,
                      &defaults)) {
    return nullptr;
  }
  return Printer(printer);
}

std::string ReadPackage(const Printer& printer) {
  wchar_t text[2049] = {};
  DWORD type = REG_NONE;
  DWORD needed = 0;
  const DWORD status = ::GetPrinterDataW(
      printer.get(), const_cast<wchar_t*>(L"DriverPackage"), &type,
      reinterpret_cast<BYTE*>(text), sizeof(text) - sizeof(wchar_t), &needed);
  return status == ERROR_SUCCESS && type == REG_SZ ? ToUtf8(text)
                                                   : std::string();
}

void ReadInfo(const Printer& printer, PrinterFacts& facts) {
  DWORD needed = 0;
  ::GetPrinterW(printer.get(), 2, nullptr, 0, &needed);
  std::vector<BYTE> buffer(needed);
  if (needed == 0 ||
      !::GetPrinterW(printer.get(), 2, buffer.data(), needed, &needed)) {
    return;
  }
  const auto* info = reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
  facts.share = ToUtf8(info->pShareName);
  facts.driver = ToUtf8(info->pDriverName);
  facts.port = ToUtf8(info->pPortName);
  facts.jobs = info->cJobs;
}

// A printer that is not shared may have no share name at all.
bool HasShareName(const PRINTER_INFO_2W& info, const std::wstring& share) {
  return info.pShareName != nullptr &&
         ::CompareStringOrdinal(info.pShareName, -1, share.c_str(), -1, TRUE) ==
             CSTR_EQUAL;
}

std::string NameOfShare(const std::wstring& share) {
  constexpr DWORD kFlags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_SHARED;
  DWORD needed = 0;
  DWORD count = 0;
  ::EnumPrintersW(kFlags, nullptr, 2, nullptr, 0, &needed, &count);
  std::vector<BYTE> buffer(needed);
  if (needed == 0 || !::EnumPrintersW(kFlags, nullptr, 2, buffer.data(), needed,
                                      &needed, &count)) {
    return {};
  }
  const auto* printers =
      reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    if (HasShareName(printers[i], share))
      return ToUtf8(printers[i].pPrinterName);
  }
  return {};
}

}  // namespace

PrinterFacts FindPrinter(const std::string& name, const std::string& share) {
  PrinterFacts facts;
  facts.name = name.empty() ? NameOfShare(ToWide(share)) : name;
  if (facts.name.empty()) return facts;
  if (const Printer printer = Open(ToWide(facts.name))) {
    ReadInfo(printer, facts);
    facts.package = ReadPackage(printer);
  }
  return facts;
}

}  // namespace sample
