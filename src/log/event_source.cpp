#include "log/event_source.h"

#include <iterator>

#include "base/handles.h"

namespace kova {
namespace {

constexpr uint32_t kSystemLog = 1;
constexpr const wchar_t* kLogNames[] = {L"Application", L"System"};

// EVENTLOG_ERROR_TYPE, EVENTLOG_WARNING_TYPE and EVENTLOG_INFORMATION_TYPE.
constexpr DWORD kTypesSupported = 7;
constexpr DWORD kCategoryCount = 2;

std::wstring MessageFilePath() {
  wchar_t folder[MAX_PATH] = {};
  if (::GetSystemDirectoryW(folder, MAX_PATH) >= MAX_PATH) folder[0] = L'\0';
  return std::wstring(folder) + L"\\Corvane_EventMessages.dll";
}

void WriteText(HKEY key, const wchar_t* name, const std::wstring& text) {
  const size_t sizeBytes = 2 * text.size() + 2;
  ::RegSetValueExW(key, name, 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>(sizeBytes));
}

void WriteNumber(HKEY key, const wchar_t* name, DWORD number) {
  ::RegSetValueExW(key, name, 0, REG_DWORD,
                   reinterpret_cast<const BYTE*>(&number), sizeof(number));
}

}  // namespace

std::wstring EventSourceKeyPath(uint32_t eventLogKind,
                                const std::wstring& sourceName) {
  const bool isKnown = eventLogKind < std::size(kLogNames);
  return std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\") +
         kLogNames[isKnown ? eventLogKind : kApplicationLog] + L"\\" +
         sourceName;
}

void WriteEventSourceValues(HKEY key) {
  const std::wstring messageFile = MessageFilePath();
  WriteText(key, kMessageFileValue, messageFile);
  WriteNumber(key, L"TypesSupported", kTypesSupported);
  WriteText(key, L"CategoryMessageFile", messageFile);
  WriteNumber(key, L"CategoryCount", kCategoryCount);
}

}  // namespace kova

namespace tk {

bool PrepareEventSource(const wchar_t* sourceName) {
  const kova::LastErrorKeeper keeper;
  if (sourceName == nullptr) return false;
  const std::wstring path =
      kova::EventSourceKeyPath(kova::kApplicationLog, sourceName);
  kova::UniqueRegistryKey key;
  DWORD disposition = 0;
  if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr,
                        REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE, nullptr,
                        key.Receive(), &disposition) != ERROR_SUCCESS) {
    return false;
  }
  if (disposition == REG_CREATED_NEW_KEY) {
    kova::WriteEventSourceValues(key.Get());
    ::RegDeleteKeyW(
        HKEY_LOCAL_MACHINE,
        kova::EventSourceKeyPath(kova::kSystemLog, sourceName).c_str());
  }
  return true;
}

}  // namespace tk
