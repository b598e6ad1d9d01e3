#include "log/logger.h"

#include <utility>

#include "base/handles.h"
#include "log/event_source.h"

namespace tk {

const std::wstring MaskKeyPath = std::wstring(kova::kMaskKey) + L"\\";

namespace {

// 260 characters and a terminator.
constexpr DWORD kValueNameCharacters = 261;

kova::UniqueRegistryKey OpenMasksToList() {
  kova::UniqueRegistryKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kova::kMaskKey, 0,
                      KEY_READ | KEY_WRITE, key.Receive()) != ERROR_SUCCESS &&
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kova::kMaskKey, 0, KEY_READ,
                      key.Receive()) != ERROR_SUCCESS) {
    return {};
  }
  return key;
}

}  // namespace

Logger::Logger(std::wstring name, uint32_t defaultMask,
               std::vector<LogFormatter> formatters, std::vector<LogSink> sinks,
               uint32_t eventLogKind)
    : m_lastRefresh(::GetTickCount64() - kRefreshIntervalMs),
      m_mask(defaultMask),
      m_name(std::move(name)),
      m_eventLogKind(eventLogKind),
      m_formatters(std::move(formatters)),
      m_sinks(std::move(sinks)) {
  const kova::LastErrorKeeper keeper;
  AppendFromStorage();
  OpenMaskKey();
  m_mask.exchange(InitialMask());
  m_lastRefresh.exchange(::GetTickCount64());
}

void Logger::OpenMaskKey() {
  if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, MaskKeyPath.c_str(), 0, nullptr,
                        REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        &m_maskKey, nullptr) != ERROR_SUCCESS) {
    m_maskKey = nullptr;
  }
}

uint32_t Logger::InitialMask() {
  uint32_t mask = 0;
  if (m_maskKey == nullptr) return m_mask;
  if (QueryMask(mask)) return mask;
  WriteMask();
  return m_mask;
}

void Logger::RefreshAt(uint64_t now) {
  const kova::LastErrorKeeper keeper;
  m_lastRefresh.exchange(now);
  m_mask.exchange(ReadMask());
}

uint32_t Logger::ReadMask() {
  if (m_maskKey == nullptr) return m_mask;
  uint32_t mask = 0;
  if (QueryMask(mask)) return mask;
  mask = m_mask;
  WriteMask();
  return mask;
}

bool Logger::QueryMask(uint32_t& mask) const {
  uint32_t value = 0;
  DWORD sizeBytes = sizeof(value);
  if (::RegQueryValueExW(m_maskKey, m_name.c_str(), nullptr, nullptr,
                         reinterpret_cast<BYTE*>(&value),
                         &sizeBytes) != ERROR_SUCCESS) {
    return false;
  }
  mask = value;
  return true;
}

void Logger::WriteMask() {
  const uint32_t mask = m_mask;
  ::RegSetValueExW(m_maskKey, m_name.c_str(), 0, REG_DWORD,
                   reinterpret_cast<const BYTE*>(&mask), sizeof(mask));
}

void Logger::Log(LogChannel channel, std::wstring message) {
  const kova::LastErrorKeeper keeper;
  if (!IsAlwaysLogged(channel) && (RefreshMask() & Bits(channel)) == 0) return;
  std::wstring prefix;
  for (const LogFormatter& formatter : m_formatters) {
    prefix += formatter(channel);
    prefix += L' ';
  }
  message.insert(0, prefix);
  for (const LogSink& sink : m_sinks) sink(this, channel, message);
}

void Logger::Error(std::wstring message) {
  Log(LogChannel::Error, std::move(message));
}

void Logger::Warning(std::wstring message) {
  Log(LogChannel::Warning, std::move(message));
}

void Logger::PopulateEventSourceRegKeys() {
  const kova::LastErrorKeeper keeper;
  const kova::UniqueRegistryKey key = OpenMasksToList();
  if (!key.IsValid()) {
    ::OutputDebugStringW(
        L"Logger::PopulateEventSourceRegKeys  Cannot open registry key  "
        L"HKEY_LOCAL_MACHINE:SOFTWARE\\Corvane Tessaly\\Drivers\\"
        L"DebugLogMasks\n");
    return;
  }
  wchar_t name[kValueNameCharacters];
  for (DWORD index = 0;; ++index) {
    DWORD characters = kValueNameCharacters;
    if (::RegEnumValueW(key.Get(), index, name, &characters, nullptr, nullptr,
                        nullptr, nullptr) != ERROR_SUCCESS) {
      return;
    }
    (void)PrepareEventSource(name);
  }
}

}  // namespace tk
