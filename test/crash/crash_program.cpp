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

using kova::test::Fault;
using kova::test::OverflowTheStack;
using kova::test::ThrowANumber;
using kova::test::WriteToNull;

void ThrowAnObject() { throw std::bad_alloc(); }

// What another C++ runtime throws: nothing of this one can catch it.
void ThrowAsAnother() { ::RaiseException(0xE06D7363, 0, 0, nullptr); }

template <Fault* fault>
void WINAPI Instead(LPCWSTR) {
  fault();
}

// Crashes by `fault`, and has another one while the crash is being recorded.
template <Fault* fault, Fault* another = nullptr>
unsigned Crash(void*) {
  if constexpr (another != nullptr) {
    static const kova::test::ImportPatch<decltype(OutputDebugStringW)> patch(
        nullptr, "OutputDebugStringW", &Instead<another>);
  }
  fault();
  return 0;
}

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
  return Crash<&WriteToNull>(nullptr);
}

unsigned ReturnNormally(void*) { return 4660; }

struct Way {
  const char* name;
  kova::GuardedBody body;
};
constexpr Way kWays[] = {
    {"access", &Crash<&WriteToNull>},
    {"overflow", &Crash<&OverflowTheStack>},
    {"throw", &Crash<&ThrowANumber>},
    {"crash-twice", &Crash<&WriteToNull, &WriteToNull>},
    {"crash-and-throw", &Crash<&WriteToNull, &ThrowAnObject>},
    {"crash-and-throw-number", &Crash<&WriteToNull, &ThrowANumber>},
    {"crash-and-throw-foreign", &Crash<&WriteToNull, &ThrowAsAnother>},
    {"throw-twice", &Crash<&ThrowANumber, &ThrowANumber>},
    {"throw-and-throw-foreign", &Crash<&ThrowANumber, &ThrowAsAnother>},
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
