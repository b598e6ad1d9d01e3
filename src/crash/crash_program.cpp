// A program that crashes inside a guard, for guard_test.cpp. Its first
// argument says how, its second what GetTickCount64() gives.
#include <cstdlib>
#include <cstring>
#include <new>

#include "crash/crash_utility.h"
#include "crash/guard.h"
#include "test/crash/faults.h"
#include "test/support/fake_tick_count.h"

namespace {

unsigned WriteToNull(void*) {
  kova::test::WriteToNull();
  return 0;
}

unsigned OverflowTheStack(void*) {
  kova::test::OverflowTheStack();
  return 0;
}

unsigned Throw(void*) {
  kova::test::ThrowANumber();
  return 0;
}

void WINAPI WriteToNullInstead(LPCWSTR) { kova::test::WriteToNull(); }

void WINAPI ThrowInstead(LPCWSTR) { throw std::bad_alloc(); }

// Crashes, and crashes once more while the crash is being recorded.
unsigned CrashTwice(void*) {
  static const kova::test::ImportPatch<decltype(OutputDebugStringW)> patch(
      nullptr, "OutputDebugStringW", &WriteToNullInstead);
  return WriteToNull(nullptr);
}

unsigned CrashAndThrow(void*) {
  static const kova::test::ImportPatch<decltype(OutputDebugStringW)> patch(
      nullptr, "OutputDebugStringW", &ThrowInstead);
  return WriteToNull(nullptr);
}

unsigned ReturnNormally(void*) { return 4660; }

struct Way {
  const char* name;
  kova::GuardedBody body;
};
constexpr Way kWays[] = {{"access", &WriteToNull},
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
