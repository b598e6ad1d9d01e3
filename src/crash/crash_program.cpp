// A program that crashes inside a guard, for guard_test.cpp. Its first
// argument says how, its second what GetTickCount64() gives.
#include <cstdlib>
#include <cstring>
#include <new>

#include "crash/crash_utility.h"
#include "crash/guard.h"
#include "test/support/fake_tick_count.h"

namespace {

__attribute__((noinline)) unsigned Recurse(volatile char* outer) {
  volatile char block[4096] = {};
  block[0] = outer[0];
  // Never true, but the compiler cannot know.
  if (block[4095] == 1) return 0;
  return Recurse(block) + static_cast<unsigned>(block[0]);
}

unsigned ReadNothing(void*) {
  return *static_cast<volatile unsigned*>(nullptr);
}

// Windows keeps a thread's guard page in front of the stack that is guaranteed
// to be left. Wine commits the whole stack and leaves the guard page at its
// very end, so it is moved there to where Windows would have it.
void PlaceGuardPage() {
  const HMODULE native = ::GetModuleHandleW(L"ntdll.dll");
  if (::GetProcAddress(native, "wine_get_version") == nullptr) return;
  constexpr ULONG kPageBytes = 4096;
  ULONG guaranteeBytes = 0;
  ::SetThreadStackGuarantee(&guaranteeBytes);
  MEMORY_BASIC_INFORMATION stack = {};
  ::VirtualQuery(&stack, &stack, sizeof(stack));
  char* const page = static_cast<char*>(stack.AllocationBase) + guaranteeBytes;
  DWORD old = 0;
  ::VirtualProtect(page, kPageBytes, PAGE_READWRITE | PAGE_GUARD, &old);
}

unsigned OverflowTheStack(void*) {
  PlaceGuardPage();
  volatile char block[1] = {};
  return Recurse(block);
}

unsigned Throw(void*) { throw 4660; }

void WINAPI ReadNothingInstead(LPCWSTR) { (void)ReadNothing(nullptr); }

void WINAPI ThrowInstead(LPCWSTR) { throw std::bad_alloc(); }

// Crashes, and crashes once more while the crash is being recorded.
unsigned CrashTwice(void*) {
  static const kova::test::ImportPatch<decltype(OutputDebugStringW)> patch(
      nullptr, "OutputDebugStringW", &ReadNothingInstead);
  return ReadNothing(nullptr);
}

unsigned CrashAndThrow(void*) {
  static const kova::test::ImportPatch<decltype(OutputDebugStringW)> patch(
      nullptr, "OutputDebugStringW", &ThrowInstead);
  return ReadNothing(nullptr);
}

unsigned ReturnNormally(void*) { return 4660; }

struct Way {
  const char* name;
  kova::GuardedBody body;
};
constexpr Way kWays[] = {{"access", &ReadNothing},
                         {"overflow", &OverflowTheStack},
                         {"throw", &Throw},
                         {"crash-twice", &CrashTwice},
                         {"crash-and-throw", &CrashAndThrow},
                         {"return", &ReturnNormally}};

DWORD WINAPI RunOnAThread(void* way) {
  return kova::RunGuarded(static_cast<const Way*>(way)->body, nullptr);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 1;
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  const kova::test::FakeTickCount clock(
      std::strtoull(arguments[2], nullptr, 10));
  CrashUtility::CreateDumpMutex();
  for (const Way& way : kWays) {
    if (std::strcmp(way.name, arguments[1]) != 0) continue;
    const HANDLE thread = ::CreateThread(nullptr, 0, &RunOnAThread,
                                         const_cast<Way*>(&way), 0, nullptr);
    ::WaitForSingleObject(thread, INFINITE);
    DWORD result = 0;
    ::GetExitCodeThread(thread, &result);
    return static_cast<int>(result);
  }
  return 2;
}
