// Whole: the system keeps the rules on threads, exceptions, registry and
// spooler that the server relies on. No code of the server runs here: what
// fails is the system. What the documentation leaves open is shown as "fact:",
// and nothing relies on it.
#include <atomic>
#include <iostream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "base/handles.h"
#include "base/windows_api.h"

namespace {

using kova::UniqueKernelHandle;
using kova::UniqueRegistryKey;

constexpr DWORD kSoonMs = 10000;

void Tell(const char* fact, const std::string& what) {
  std::cout << "fact: " << fact << ": " << what << std::endl;
}

std::atomic<int> g_freed;
void WINAPI CountFreed(void* /*value*/) { ++g_freed; }

UniqueKernelHandle Begin(LPTHREAD_START_ROUTINE body, void* argument) {
  return UniqueKernelHandle(
      ::CreateThread(nullptr, 0, body, argument, 0, nullptr));
}
bool Ends(const UniqueKernelHandle& thread) {
  return ::WaitForSingleObject(thread.Get(), kSoonMs) == WAIT_OBJECT_0;
}

struct Slot {
  DWORD index = ::FlsAlloc(&CountFreed);
  HANDLE set = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE end = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
};
DWORD WINAPI SetSlotAndStay(void* argument) {
  const auto& slot = *static_cast<Slot*>(argument);
  ::FlsSetValue(slot.index, argument);
  ::SetEvent(slot.set);
  return ::WaitForSingleObject(slot.end, kSoonMs);
}

TEST(ThreadRules, AThreadThatEndsHasItsFiberSlotFreed) {
  Slot slot;
  g_freed = 0;
  const UniqueKernelHandle thread = Begin(&SetSlotAndStay, &slot);
  ::SetEvent(slot.end);
  ASSERT_TRUE(Ends(thread));
  EXPECT_EQ(g_freed, 1);
  ::FlsFree(slot.index);
}

// At the library's unload, while threads of the host that have logged go on.
TEST(ThreadRules, FreeingAFiberSlotFreesItForEveryThread) {
  Slot slot;
  g_freed = 0;
  const UniqueKernelHandle thread = Begin(&SetSlotAndStay, &slot);
  ASSERT_EQ(::WaitForSingleObject(slot.set, kSoonMs), WAIT_OBJECT_0);
  ::FlsSetValue(slot.index, &slot);
  EXPECT_TRUE(::FlsFree(slot.index));
  EXPECT_EQ(g_freed, 2);
  ::SetEvent(slot.end);
  EXPECT_TRUE(Ends(thread));
  EXPECT_EQ(g_freed, 2);
}

DWORD WINAPI TakeAndStay(void* mutex) {
  ::WaitForSingleObject(mutex, INFINITE);
  return ::SuspendThread(::GetCurrentThread());
}

TEST(ThreadRules, AMutexOfAThreadThatWasKilledPassesOn) {
  const UniqueKernelHandle mutex(::CreateMutexW(nullptr, FALSE, nullptr));
  const UniqueKernelHandle thread = Begin(&TakeAndStay, mutex.Get());
  while (::WaitForSingleObject(mutex.Get(), 0) != WAIT_TIMEOUT) {
    ::ReleaseMutex(mutex.Get());
    ::SwitchToThread();
  }
  ASSERT_TRUE(::TerminateThread(thread.Get(), 4660));
  ASSERT_TRUE(Ends(thread));
  DWORD code = 0;
  EXPECT_TRUE(::GetExitCodeThread(thread.Get(), &code));
  EXPECT_EQ(code, 4660u);
  EXPECT_EQ(::WaitForSingleObject(mutex.Get(), kSoonMs), WAIT_ABANDONED);
}

TEST(ThreadRules, TheStackGuaranteeGrowsAndStays) {
  std::thread([] {
    ULONG bytes = 64 * 1024;
    ASSERT_TRUE(::SetThreadStackGuarantee(&bytes));
    bytes = 4096;
    EXPECT_TRUE(::SetThreadStackGuarantee(&bytes));
    bytes = 0;
    EXPECT_TRUE(::SetThreadStackGuarantee(&bytes));
    EXPECT_EQ(bytes, 64u * 1024);
  }).join();
}

using ShutdownCheck = BYTE(WINAPI*)();
ShutdownCheck FindShutdownCheck() {
  return reinterpret_cast<ShutdownCheck>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"),
                                               "RtlDllShutdownInProgress")));
}

enum EndCode : UINT { kNotCalled, kCalledInEnd, kCalledBeforeEnd };

void WINAPI EndHere(void* /*value*/) {
  const ShutdownCheck check = FindShutdownCheck();
  const bool isEnding = check != nullptr && check() != 0;
  ::TerminateProcess(::GetCurrentProcess(),
                     isEnding ? kCalledInEnd : kCalledBeforeEnd);
}

bool TellOfTheEnd(int code) {
  const char* const ends[] = {"are not called", "are called, in its end",
                              "are called, before its end"};
  if (code < 0 || code > static_cast<int>(kCalledBeforeEnd)) return false;
  Tell("callbacks of fiber slots where the process ends", ends[code]);
  return true;
}

// In a process of its own.
TEST(ThreadRulesDeathTest, AProcessEndsWithAValueInAFiberSlot) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::FlsSetValue(::FlsAlloc(&EndHere), &g_freed);
        ::ExitProcess(kNotCalled);
      },
      TellOfTheEnd, "");
}

TEST(ThreadRules, ALibraryKnowsThatTheProcessDoesNotEnd) {
  const ShutdownCheck check = FindShutdownCheck();
  Tell("RtlDllShutdownInProgress",
       check == nullptr ? "is missing" : "is there");
  if (check != nullptr) EXPECT_EQ(check(), 0);
}

int g_shown;
LONG WINAPI CountShown(EXCEPTION_POINTERS* /*pointers*/) {
  ++g_shown;
  return EXCEPTION_CONTINUE_SEARCH;
}

__declspec(noinline) void TellDebugger() { ::OutputDebugStringW(L"text\n"); }

// Whether a filter around the call was asked.
bool ReachesAFilter() {
  __try {
    TellDebugger();
  } __except (EXCEPTION_EXECUTE_HANDLER) {
    return true;
  }
  return false;
}

TEST(ExceptionRules, TextForADebuggerReachesNoFilterAround) {
  void* const handler = ::AddVectoredExceptionHandler(1, &CountShown);
  g_shown = 0;
  EXPECT_FALSE(ReachesAFilter());
  ::RemoveVectoredExceptionHandler(handler);
  Tell("exceptions that vectored handlers see of a text for the debugger",
       std::to_string(g_shown));
}

TEST(RegistryRules, APathMayEndInABackslash) {
  UniqueRegistryKey key;
  EXPECT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\", 0,
                            KEY_READ, key.Receive()),
            ERROR_SUCCESS);
}

TEST(RegistryRules, AFailureIsInTheResult) {
  ::SetLastError(4660);
  UniqueRegistryKey key;
  EXPECT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\no such key", 0,
                            KEY_READ, key.Receive()),
            ERROR_FILE_NOT_FOUND);
  Tell("the last error after a registry call that failed",
       ::GetLastError() == 4660 ? "is what it was" : "is another");
}

TEST(RegistryRules, A64BitProgramSeesThe64BitView) {
  UniqueRegistryKey key;
  for (const REGSAM view : {0, KEY_WOW64_64KEY}) {
    EXPECT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Wow6432Node", 0,
                              KEY_READ | view, key.Receive()),
              ERROR_SUCCESS);
  }
}

TEST(SpoolerRules, AShortBufferIsToldTheSizeThatIsNeeded) {
  DWORD needed = 0;
  DWORD count = 0;
  const BOOL listed = ::EnumPrintersW(PRINTER_ENUM_LOCAL | PRINTER_ENUM_SHARED,
                                      nullptr, 2, nullptr, 0, &needed, &count);
  if (listed) {
    EXPECT_EQ(needed, 0u) << "there are printers, but no room was needed";
  } else {
    const DWORD error = ::GetLastError();
    ASSERT_TRUE(error == ERROR_INSUFFICIENT_BUFFER ||
                error == RPC_S_SERVER_UNAVAILABLE)
        << error;
  }
  Tell("shared printers are listed in so many bytes", std::to_string(needed));
}

TEST(FolderRules, TheTemporaryFolderEndsInABackslash) {
  wchar_t path[MAX_PATH] = {};
  const DWORD length = ::GetTempPathW(MAX_PATH, path);
  ASSERT_TRUE(length > 0 && length < MAX_PATH);
  EXPECT_EQ(path[length - 1], L'\\');
}

}  // namespace
