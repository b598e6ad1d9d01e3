#include "logging_calls.h"

#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <thread>

#include "base/windows_api.h"

namespace {

// One slot is all that is asked for. A thread's end hands its value over.
std::atomic<FlsCallback*> flsCallback{nullptr};
struct FlsSlot {
  ~FlsSlot() {
    FlsCallback* const callback = flsCallback;
    if (value != nullptr && callback != nullptr) callback(value);
  }
  void* value = nullptr;
};
thread_local FlsSlot flsSlot;

HANDLE SomeHandle() { return reinterpret_cast<HANDLE>(16); }

}  // namespace

namespace kova::test {

LoggingCalls& TheLoggingCalls() {
  static LoggingCalls calls;
  return calls;
}

}  // namespace kova::test

using kova::test::TheLoggingCalls;

// A handle that is not that of some file is a lock's.
BOOL CloseHandle(HANDLE handle) {
  if (handle != SomeHandle()) delete static_cast<std::recursive_mutex*>(handle);
  return TRUE;
}
BOOL WSACloseEvent(WSAEVENT) { return TRUE; }
int closesocket(SOCKET) { return 0; }
BOOL FreeLibrary(HMODULE) { return TRUE; }
BOOL ClosePrinter(HANDLE) { return TRUE; }

LSTATUS RegCloseKey(HKEY) { return ERROR_SUCCESS; }
LSTATUS RegCreateKeyExW(HKEY, LPCWSTR, DWORD, wchar_t*, DWORD, DWORD, void*,
                        HKEY* key, DWORD* disposition) {
  *key = SomeHandle();
  if (disposition != nullptr) *disposition = REG_CREATED_NEW_KEY;
  return ERROR_SUCCESS;
}
LSTATUS RegOpenKeyExW(HKEY, LPCWSTR, DWORD, DWORD, HKEY* key) {
  *key = SomeHandle();
  return ERROR_SUCCESS;
}
LSTATUS RegQueryValueExW(HKEY, LPCWSTR, DWORD*, DWORD*, BYTE* data,
                         DWORD* size) {
  const uint32_t mask = TheLoggingCalls().mask;
  std::memcpy(data, &mask, sizeof(mask));
  *size = sizeof(mask);
  return ERROR_SUCCESS;
}
LSTATUS RegSetValueExW(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) {
  return ERROR_SUCCESS;
}
LSTATUS RegDeleteKeyW(HKEY, LPCWSTR) { return ERROR_SUCCESS; }
LSTATUS RegEnumValueW(HKEY, DWORD, wchar_t*, DWORD*, DWORD*, DWORD*, BYTE*,
                      DWORD*) {
  return ERROR_NO_MORE_ITEMS;
}
HANDLE RegisterEventSourceW(LPCWSTR, LPCWSTR) { return SomeHandle(); }
BOOL ReportEventW(HANDLE, WORD, WORD, DWORD, void*, WORD, DWORD,
                  LPCWSTR* strings, void*) {
  TheLoggingCalls().events += std::wcslen(strings[0]) > 0;
  return TRUE;
}
void OutputDebugStringW(LPCWSTR text) {
  TheLoggingCalls().debuggerLines += std::wcslen(text) > 0;
}
int wsprintfW(wchar_t* text, LPCWSTR format, ...) {
  constexpr size_t kMostUnits = 1024;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vswprintf(text, kMostUnits, format, arguments);
  va_end(arguments);
  return length;
}
UINT GetSystemDirectoryW(wchar_t* folder, UINT) {
  std::wcscpy(folder, L"C:\\windows\\system32");
  return static_cast<UINT>(std::wcslen(folder));
}

DWORD GetFileAttributesW(LPCWSTR) { return FILE_ATTRIBUTE_DIRECTORY; }
BOOL CreateDirectoryW(LPCWSTR, void*) { return TRUE; }
// Somebody deletes the file now and then.
HANDLE CreateFileW(LPCWSTR, DWORD, DWORD, void*, DWORD, DWORD, HANDLE) {
  constexpr uint32_t kLinesBetween = 1000;
  static std::atomic<uint32_t> calls{0};
  return calls++ % kLinesBetween == 0 ? SomeHandle() : INVALID_HANDLE_VALUE;
}
// Reads every byte it is given.
BOOL WriteFile(HANDLE, const void* bytes, DWORD size, DWORD* written, void*) {
  const auto* const first = static_cast<const unsigned char*>(bytes);
  unsigned sum = 0;
  for (DWORD i = 0; i < size; ++i) sum += first[i];
  TheLoggingCalls().files += sum > 0;
  *written = size;
  return TRUE;
}

uint64_t GetTickCount64() {
  auto& calls = TheLoggingCalls();
  return calls.nowMs += calls.stepMs;
}
DWORD GetTickCount() { return static_cast<DWORD>(GetTickCount64()); }
BOOL QueryPerformanceCounter(LARGE_INTEGER* counter) {
  counter->QuadPart = static_cast<int64_t>(GetTickCount64());
  return TRUE;
}
void GetSystemTimeAsFileTime(FILETIME* time) { *time = {0, 0x01DB0000}; }
DWORD GetCurrentThreadId() {
  return static_cast<DWORD>(
      std::hash<std::thread::id>()(std::this_thread::get_id()));
}
DWORD GetCurrentProcessId() { return static_cast<DWORD>(::getpid()); }
int localtime_s(std::tm* local, const std::time_t* time) {
  return ::localtime_r(time, local) == nullptr;
}
DWORD GetEnvironmentVariableW(LPCWSTR, wchar_t*, DWORD) { return 0; }
DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION*) {
  return TIME_ZONE_ID_INVALID;
}

HMODULE GetModuleHandleW(LPCWSTR) { return nullptr; }
void (*GetProcAddress(HMODULE, const char*))() { return nullptr; }

DWORD FlsAlloc(FlsCallback* callback) {
  flsCallback = callback;
  return 0;
}
BOOL FlsFree(DWORD) {
  flsCallback = nullptr;
  return TRUE;
}
void* FlsGetValue(DWORD) { return flsSlot.value; }
BOOL FlsSetValue(DWORD, void* value) {
  flsSlot.value = value;
  return TRUE;
}
