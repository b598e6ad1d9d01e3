#include "test/kit/inventory.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string_view>

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::test {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::wstring>;

constexpr wchar_t kEnvironment[] = L"Windows x64";
constexpr wchar_t kSettings[] = L"SOFTWARE\\Corvane Tessaly\\Drivers";
constexpr wchar_t kInstalled[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\KOVAServer";
constexpr std::wstring_view kEventLogs =
    L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\";
constexpr wchar_t kServerSource[] = L"Corvane KOVA Server";
constexpr std::wstring_view kMessageLibrary = L"Corvane_EventMessages.dll";
// How the printers and drivers begin that tests add. What anybody else has
// added meanwhile is none of ours.
constexpr std::wstring_view kOwnNames[] = {L"KOVA", L"Kova", L"Demo Printer",
                                           L"Facts Unshared", L"Probe Printer"};

bool IsOwnName(std::wstring_view name) {
  return std::any_of(
      std::begin(kOwnNames), std::end(kOwnNames),
      [name](std::wstring_view own) { return name.starts_with(own); });
}

wchar_t* Text(const std::wstring& text) {
  return const_cast<wchar_t*>(text.c_str());
}

// The names of a list that the spooler gives. `Record` has the name, the first
// call tells how much room it takes.
template <typename Record, typename List, typename Name>
Names SpoolerNames(List list, Name name) {
  DWORD needed = 0;
  DWORD count = 0;
  list(nullptr, 0, &needed, &count);
  std::vector<BYTE> room(needed);
  Names names;
  if (needed == 0 || !list(room.data(), needed, &needed, &count)) return names;
  const auto* const records = reinterpret_cast<const Record*>(room.data());
  for (DWORD i = 0; i < count; ++i) names.insert(name(records[i]));
  std::erase_if(names, [](const auto& each) { return !IsOwnName(each); });
  return names;
}

Names Printers() {
  return SpoolerNames<PRINTER_INFO_4W>(
      [](BYTE* room, DWORD size, DWORD* needed, DWORD* count) {
        return ::EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 4, room, size,
                               needed, count);
      },
      [](const PRINTER_INFO_4W& printer) { return printer.pPrinterName; });
}

bool RemovePrinter(const std::wstring& name) {
  PRINTER_DEFAULTSW defaults = {};
  defaults.DesiredAccess = PRINTER_ALL_ACCESS;
  UniquePrinter printer;
  return ::OpenPrinterW(Text(name), printer.Receive(), &defaults) &&
         ::DeletePrinter(printer.Get());
}

Names Drivers() {
  return SpoolerNames<DRIVER_INFO_1W>(
      [](BYTE* room, DWORD size, DWORD* needed, DWORD* count) {
        return ::EnumPrinterDriversW(nullptr, nullptr, 1, room, size, needed,
                                     count);
      },
      [](const DRIVER_INFO_1W& driver) { return driver.pName; });
}

bool RemoveDriver(const std::wstring& name) {
  return ::DeletePrinterDriverW(nullptr, const_cast<wchar_t*>(kEnvironment),
                                Text(name));
}

bool KeyExists(const std::wstring& path) {
  UniqueRegistryKey key;
  return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ,
                         key.Receive()) == ERROR_SUCCESS;
}

// Whether the source's texts are in the server's message library.
bool IsOwnSource(const std::wstring& path) {
  wchar_t file[MAX_PATH] = {};
  DWORD sizeBytes = sizeof(file) - sizeof(wchar_t);
  return ::RegGetValueW(HKEY_LOCAL_MACHINE, path.c_str(), L"EventMessageFile",
                        RRF_RT_REG_SZ, nullptr, file,
                        &sizeBytes) == ERROR_SUCCESS &&
         std::wstring_view(file).ends_with(kMessageLibrary);
}

void AddOwnSources(const std::wstring& log, Names& names) {
  UniqueRegistryKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, log.c_str(), 0, KEY_READ,
                      key.Receive()) != ERROR_SUCCESS) {
    return;
  }
  wchar_t name[256];
  for (DWORD index = 0;; ++index) {
    DWORD length = 256;
    if (::RegEnumKeyExW(key.Get(), index, name, &length, nullptr, nullptr,
                        nullptr, nullptr) != ERROR_SUCCESS) {
      return;
    }
    const std::wstring source = log + L"\\" + name;
    if (name == std::wstring_view(kServerSource) || IsOwnSource(source)) {
      names.insert(source);
    }
  }
}

Names Keys() {
  Names names;
  for (const wchar_t* const log : {L"Application", L"System"}) {
    AddOwnSources(std::wstring(kEventLogs) + log, names);
  }
  for (const wchar_t* const key : {kSettings, L"SOFTWARE\\Corvane Tessaly"}) {
    if (KeyExists(key)) names.insert(key);
  }
  return names;
}

bool RemoveKey(const std::wstring& path) {
  return ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str()) == ERROR_SUCCESS &&
         (::RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str()) == ERROR_SUCCESS ||
          !KeyExists(path));
}

fs::path SystemFolder() {
  wchar_t path[MAX_PATH] = {};
  ::GetSystemDirectoryW(path, MAX_PATH);
  return path;
}

fs::path DumpFolder() {
  wchar_t path[MAX_PATH] = L"C:\\ProgramData";
  ::ExpandEnvironmentStringsW(L"%ProgramData%", path, MAX_PATH);
  return fs::path(path) / L"Corvane";
}

Names Files() {
  Names names;
  std::error_code none;
  for (const fs::path& top : {fs::path(L"C:\\Log Files"), DumpFolder()}) {
    if (!fs::exists(top, none)) continue;
    names.insert(top.wstring());
    for (const auto& entry : fs::recursive_directory_iterator(top, none)) {
      names.insert(entry.path().wstring());
    }
  }
  const fs::path messages = SystemFolder() / kMessageLibrary;
  if (fs::exists(messages, none)) names.insert(messages.wstring());
  return names;
}

bool RemoveFile(const std::wstring& path) {
  std::error_code error;
  fs::remove_all(path, error);
  return !error;
}

// In the order in which they are taken away: a printer holds its driver.
struct Kind {
  std::wstring_view name;
  Names (*list)();
  bool (*remove)(const std::wstring& name);
};
constexpr Kind kKinds[] = {{L"printer", &Printers, &RemovePrinter},
                           {L"printer driver", &Drivers, &RemoveDriver},
                           {L"registry key", &Keys, &RemoveKey},
                           {L"file", &Files, &RemoveFile}};

std::wstring Described(const Kind& kind, const std::wstring& name) {
  return std::wstring(kind.name).append(L" | ").append(name);
}

}  // namespace

Inventory TakeInventory() {
  Inventory all;
  for (const Kind& kind : kKinds) {
    for (const std::wstring& name : kind.list()) {
      all.insert(Described(kind, name));
    }
  }
  return all;
}

std::vector<std::wstring> SignsOfProduction() {
  std::vector<std::wstring> signs;
  for (const std::wstring& key :
       {std::wstring(kSettings), std::wstring(kInstalled),
        std::wstring(kEventLogs) + L"Application\\" + kServerSource}) {
    if (KeyExists(key)) signs.push_back(L"HKEY_LOCAL_MACHINE\\" + key);
  }
  for (const std::wstring& file : Files()) signs.push_back(file);
  return signs;
}

std::vector<std::wstring> Without(const Inventory& left,
                                  const Inventory& right) {
  std::vector<std::wstring> rest;
  std::set_difference(left.begin(), left.end(), right.begin(), right.end(),
                      std::back_inserter(rest));
  return rest;
}

std::vector<std::wstring> Restore(const Inventory& before) {
  for (const Kind& kind : kKinds) {
    for (const std::wstring& name : kind.list()) {
      if (!before.contains(Described(kind, name))) (void)kind.remove(name);
    }
  }
  const Inventory after = TakeInventory();
  std::vector<std::wstring> faults;
  for (const std::wstring& thing : Without(after, before)) {
    faults.push_back(L"left behind: " + thing);
  }
  for (const std::wstring& thing : Without(before, after)) {
    faults.push_back(L"gone: " + thing);
  }
  return faults;
}

bool Save(const Inventory& inventory, const fs::path& file) {
  fs::path half = file;
  half += L".new";
  std::ofstream out(half, std::ios::binary);
  for (const std::wstring& thing : inventory) {
    const std::u8string text = fs::path(thing).u8string();
    out.write(reinterpret_cast<const char*>(text.data()),
              static_cast<std::streamsize>(text.size()));
    out.put('\n');
  }
  out.close();
  std::error_code error;
  if (!out.fail()) fs::rename(half, file, error);
  return !out.fail() && !error;
}

Inventory Load(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  Inventory inventory;
  for (std::string line; std::getline(in, line);) {
    inventory.insert(
        fs::path(std::u8string(line.begin(), line.end())).wstring());
  }
  return inventory;
}

}  // namespace kova::test
