// The stand-in's calls: each goes through a slot that a test may replace.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <string>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

int RealMultiByteToWideChar(UINT, DWORD, const char*, int, wchar_t*, int);
int RealWideCharToMultiByte(UINT, DWORD, const wchar_t*, int, char*, int,
                            const char*, BOOL*);

namespace {

thread_local DWORD lastError = 0;

UINT RealGetACP() { return 1252; }

BOOL RealGetComputerNameW(wchar_t* name, DWORD* size) {
  const std::wstring own = L"KOVATEST";
  if (own.size() + 1 > *size) {
    SetLastError(ERROR_BUFFER_OVERFLOW);
    return 0;
  }
  std::wmemcpy(name, own.c_str(), own.size() + 1);
  *size = static_cast<DWORD>(own.size());
  return 1;
}

struct Slot {
  const char* name;
  void* function;
};
Slot slots[] = {
    {"GetACP", reinterpret_cast<void*>(&RealGetACP)},
    {"GetComputerNameW", reinterpret_cast<void*>(&RealGetComputerNameW)},
    {"MultiByteToWideChar", reinterpret_cast<void*>(&RealMultiByteToWideChar)},
    {"WideCharToMultiByte", reinterpret_cast<void*>(&RealWideCharToMultiByte)},
};

template <typename Function>
Function* Current(const char* name) {
  return reinterpret_cast<Function*>(
      *kova::test::FindImportSlot(nullptr, name));
}

std::recursive_mutex* MutexOf(CRITICAL_SECTION* section) {
  return static_cast<std::recursive_mutex*>(section->implementation);
}

}  // namespace

namespace kova::test {

void** FindImportSlot(HMODULE, const char* name) {
  for (Slot& slot : slots) {
    if (std::strcmp(slot.name, name) == 0) return &slot.function;
  }
  std::fprintf(stderr, "no stand-in for %s to replace\n", name);
  std::abort();
}

}  // namespace kova::test

void InitializeCriticalSection(CRITICAL_SECTION* section) {
  section->implementation = new std::recursive_mutex;
}
void EnterCriticalSection(CRITICAL_SECTION* section) {
  MutexOf(section)->lock();
}
void LeaveCriticalSection(CRITICAL_SECTION* section) {
  MutexOf(section)->unlock();
}
void DeleteCriticalSection(CRITICAL_SECTION* section) {
  delete MutexOf(section);
}

DWORD GetLastError() { return lastError; }
void SetLastError(DWORD error) { lastError = error; }

UINT GetACP() { return Current<decltype(GetACP)>("GetACP")(); }

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* text,
                        int length, wchar_t* out, int outUnits) {
  return Current<decltype(MultiByteToWideChar)>("MultiByteToWideChar")(
      codePage, flags, text, length, out, outUnits);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* text,
                        int length, char* out, int outBytes,
                        const char* defaultCharacter, BOOL* usedDefault) {
  return Current<decltype(WideCharToMultiByte)>("WideCharToMultiByte")(
      codePage, flags, text, length, out, outBytes, defaultCharacter,
      usedDefault);
}

BOOL GetComputerNameW(wchar_t* name, DWORD* size) {
  return Current<decltype(GetComputerNameW)>("GetComputerNameW")(name, size);
}
