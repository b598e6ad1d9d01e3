#include "test/support/log_capture.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "base/handles.h"

namespace kova::test {
namespace {

constexpr wchar_t kMaskKey[] =
    L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks";

std::mutex g_mutex;
std::condition_variable g_grown;
std::vector<std::wstring> g_lines;

void WINAPI Gather(LPCWSTR text) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.emplace_back(text == nullptr ? L"" : text);
  g_grown.notify_all();
}

UniqueRegistryKey MaskKey() {
  UniqueRegistryKey key;
  ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMaskKey, 0, nullptr, 0,
                    KEY_READ | KEY_WRITE, nullptr, key.Receive(), nullptr);
  return key;
}

}  // namespace

LogCapture::LogCapture(HMODULE module)
    : m_patch(module, "OutputDebugStringW", &Gather) {
  (void)Take();
}

LogCapture::~LogCapture() = default;

std::vector<std::wstring> LogCapture::Lines() const {
  const std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

std::vector<std::wstring> LogCapture::Take() {
  const std::lock_guard<std::mutex> lock(g_mutex);
  return std::exchange(g_lines, {});
}

bool LogCapture::WaitFor(const std::wstring& line, DWORD timeoutMs) const {
  std::unique_lock<std::mutex> lock(g_mutex);
  return g_grown.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
    return std::find(g_lines.begin(), g_lines.end(), line) != g_lines.end();
  });
}

void SetLogMask(uint32_t mask, const wchar_t* loggerName) {
  ::RegSetValueExW(MaskKey().Get(), loggerName, 0, REG_DWORD,
                   reinterpret_cast<const BYTE*>(&mask), sizeof(mask));
}

bool GetLogMask(uint32_t& mask, const wchar_t* loggerName) {
  DWORD sizeBytes = sizeof(mask);
  return ::RegQueryValueExW(MaskKey().Get(), loggerName, nullptr, nullptr,
                            reinterpret_cast<BYTE*>(&mask),
                            &sizeBytes) == ERROR_SUCCESS;
}

void DeleteLogMask(const wchar_t* loggerName) {
  ::RegDeleteValueW(MaskKey().Get(), loggerName);
}

ScopedLogMask::ScopedLogMask(uint32_t mask, const wchar_t* loggerName)
    : m_loggerName(loggerName), m_existed(GetLogMask(m_former, loggerName)) {
  SetLogMask(mask, loggerName);
}

ScopedLogMask::~ScopedLogMask() {
  if (m_existed) {
    SetLogMask(m_former, m_loggerName.c_str());
  } else {
    DeleteLogMask(m_loggerName.c_str());
  }
}

}  // namespace kova::test
