// A program that crashes inside a guard, for guard_test.cpp. Its first
// argument says how, its second what GetTickCount64() gives. With a third one,
// "handled", the host handles what comes out of the guard: the exit code is
// then that of the exception, or 1 if the host was not asked exactly once.
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

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

void WINAPI ThrowANumberInstead(LPCWSTR) { kova::test::ThrowANumber(); }

// What another C++ runtime throws: nothing of this one can catch it.
void WINAPI ThrowForeignInstead(LPCWSTR) {
  ::RaiseException(0xE06D7363, 0, 0, nullptr);
}

// Crashes by `fault`, and calls `instead` while the crash is being recorded.
template <kova::test::Fault* fault, decltype(OutputDebugStringW)* instead>
unsigned CrashAnd(void*) {
  static const kova::test::ImportPatch<decltype(OutputDebugStringW)> patch(
      nullptr, "OutputDebugStringW", instead);
  fault();
  return 0;
}

constexpr auto CrashTwice =
    &CrashAnd<&kova::test::WriteToNull, &WriteToNullInstead>;
constexpr auto CrashAndThrow =
    &CrashAnd<&kova::test::WriteToNull, &ThrowInstead>;
constexpr auto CrashAndThrowNumber =
    &CrashAnd<&kova::test::WriteToNull, &ThrowANumberInstead>;
constexpr auto CrashAndThrowForeign =
    &CrashAnd<&kova::test::WriteToNull, &ThrowForeignInstead>;
constexpr auto ThrowTwice =
    &CrashAnd<&kova::test::ThrowANumber, &ThrowANumberInstead>;
constexpr auto ThrowAndThrowForeign =
    &CrashAnd<&kova::test::ThrowANumber, &ThrowForeignInstead>;

decltype(std::malloc)* g_malloc = nullptr;
bool g_failNext = false;

void* FailOnce(size_t sizeBytes) {
  return std::exchange(g_failNext, false) ? nullptr : g_malloc(sizeBytes);
}

// The first thing that memory is missing for is the logger.
unsigned CrashWithoutALogger(void*) {
  void** const slot = kova::test::FindImportSlot(nullptr, "malloc");
  g_malloc = reinterpret_cast<decltype(std::malloc)*>(
      kova::test::ReadImportSlot(slot));
  kova::test::WriteImportSlot(slot, reinterpret_cast<void*>(&FailOnce));
  g_failNext = true;
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
                         {"crash-twice", CrashTwice},
                         {"crash-and-throw", CrashAndThrow},
                         {"crash-and-throw-number", CrashAndThrowNumber},
                         {"crash-and-throw-foreign", CrashAndThrowForeign},
                         {"throw-twice", ThrowTwice},
                         {"throw-and-throw-foreign", ThrowAndThrowForeign},
                         {"no-logger", &CrashWithoutALogger},
                         {"return", &ReturnNormally}};

DWORD WINAPI RunOnAThread(void* way) {
  return kova::RunGuarded(static_cast<const Way*>(way)->body, nullptr);
}

int g_timesAsked = 0;

int Ask() {
  ++g_timesAsked;
  return EXCEPTION_EXECUTE_HANDLER;
}

// No object with a destructor may live in this function.
DWORD WINAPI HandleOnAThread(void* way) {
  DWORD code = 0;
  __try {
    (void)RunOnAThread(way);
  } __except (code = GetExceptionCode(), Ask()) {
  }
  return g_timesAsked == 1 ? code : 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3 && count != 4) return 1;
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  const kova::test::FakeTickCount clock(
      std::strtoull(arguments[2], nullptr, 10));
  CrashUtility::CreateDumpMutex();
  for (const Way& way : kWays) {
    if (std::strcmp(way.name, arguments[1]) != 0) continue;
    const HANDLE thread = ::CreateThread(
        nullptr, 0, count == 4 ? &HandleOnAThread : &RunOnAThread,
        const_cast<Way*>(&way), 0, nullptr);
    ::WaitForSingleObject(thread, INFINITE);
    DWORD result = 0;
    ::GetExitCodeThread(thread, &result);
    return static_cast<int>(result);
  }
  return 2;
}
