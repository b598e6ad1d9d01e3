// The kernel's calls as the library makes them.
#include "test/schedules/machine.h"

namespace kova::test {
namespace {

using Kind = KernelObject::Kind;

KernelModel& Kernel() { return TheMachine().kernel; }
Scheduler& Threads() { return TheMachine().scheduler; }

uint64_t Limit(DWORD timeoutMs) {
  return timeoutMs == INFINITE ? kNever : timeoutMs;
}

HANDLE WINAPI MakeEvent(LPSECURITY_ATTRIBUTES, BOOL manual, BOOL signalled,
                        LPCWSTR) {
  auto event = std::make_shared<KernelObject>();
  event->manual = manual != FALSE;
  event->signalled = signalled != FALSE;
  return Kernel().Add(event);
}

HANDLE WINAPI MakeMutex(LPSECURITY_ATTRIBUTES, BOOL owned, LPCWSTR) {
  auto mutex = std::make_shared<KernelObject>();
  mutex->kind = Kind::kMutex;
  mutex->owned = owned != FALSE;
  mutex->thread = Threads().Current();
  mutex->depth = 1;
  return Kernel().Add(mutex);
}

BOOL ChangeEvent(const char* call, HANDLE handle, bool signalled,
                 Scheduler::Move move) {
  Threads().Point(call, move);
  const KernelObjectPtr event = Kernel().Find(handle, call);
  if (event == nullptr || event->kind != Kind::kEvent) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  event->signalled = signalled;
  return TRUE;
}

BOOL WINAPI Signal(HANDLE event) {
  return ChangeEvent("SetEvent", event, true, Scheduler::Move::kAny);
}

BOOL WINAPI Unsignal(HANDLE event) {
  return ChangeEvent("ResetEvent", event, false, Scheduler::Move::kAny);
}

BOOL WINAPI GiveMutex(HANDLE handle) {
  Threads().Point("ReleaseMutex", Scheduler::Move::kStallOnly);
  const KernelObjectPtr mutex = Kernel().Find(handle, "ReleaseMutex");
  if (mutex == nullptr || !mutex->owned ||
      mutex->thread != Threads().Current()) {
    TheMachine().Complain("ReleaseMutex of a mutex that is not held");
    ::SetLastError(ERROR_NOT_OWNER);
    return FALSE;
  }
  if (--mutex->depth == 0) mutex->owned = false;
  return TRUE;
}

BOOL WINAPI Close(HANDLE handle) {
  bool isOurs = false;
  Threads().PointOfClosing(
      "CloseHandle", [&] { isOurs = Kernel().Close(handle, "CloseHandle"); });
  return isOurs ? TRUE : ::CloseHandle(handle);
}

BOOL WINAPI Duplicate(HANDLE from, HANDLE handle, HANDLE to, LPHANDLE copy,
                      DWORD access, BOOL inherit, DWORD options) {
  const bool isSelf = handle == ::GetCurrentThread();
  if (!isSelf && !KernelModel::IsOurs(handle)) {
    return ::DuplicateHandle(from, handle, to, copy, access, inherit, options);
  }
  const KernelObjectPtr object = Kernel().Find(handle, "DuplicateHandle");
  if (object == nullptr) return FALSE;
  *copy = Kernel().Add(object);
  return TRUE;
}

BOOL WINAPI SetInformation(HANDLE handle, DWORD mask, DWORD flags) {
  const auto socket = reinterpret_cast<SOCKET>(handle);
  if (KernelModel::IsOurs(handle) || WinsockModel::IsOurs(socket)) return TRUE;
  return ::SetHandleInformation(handle, mask, flags);
}

DWORD WINAPI WaitOne(HANDLE handle, DWORD timeoutMs) {
  const HANDLE handles[] = {handle};
  return Kernel().Wait("WaitForSingleObject", handles, Limit(timeoutMs));
}

// The server's locks that are mutexes are waited for by this call.
DWORD WINAPI WaitOneEx(HANDLE handle, DWORD timeoutMs, BOOL alertable) {
  if (alertable) TheMachine().Complain("an alertable wait");
  const uint64_t startMs = Threads().NowMs();
  const HANDLE handles[] = {handle};
  const DWORD result =
      Kernel().Wait("WaitForSingleObjectEx", handles, Limit(timeoutMs));
  TheMachine().locks.CountWait(startMs);
  return result;
}

DWORD WINAPI WaitSeveral(DWORD count, const HANDLE* handles, BOOL all,
                         DWORD timeoutMs) {
  if (all && count > 1) TheMachine().Complain("a wait for all of several");
  return Kernel().Wait("WaitForMultipleObjects", {handles, count},
                       Limit(timeoutMs));
}

void WINAPI SleepFor(DWORD timeMs) {
  Threads().Await("Sleep", [] { return false; }, Limit(timeMs));
}

uintptr_t __cdecl BeginThread(void*, unsigned,
                              unsigned(__stdcall* start)(void*), void* argument,
                              unsigned flags, unsigned* id) {
  Threads().Point("_beginthreadex");
  return reinterpret_cast<uintptr_t>(Kernel().BeginThread(
      start, argument, (flags & CREATE_SUSPENDED) != 0, id));
}

DWORD WINAPI Resume(HANDLE handle) {
  Threads().Point("ResumeThread");
  const KernelObjectPtr thread = Kernel().Find(handle, "ResumeThread");
  if (thread == nullptr) return static_cast<DWORD>(-1);
  Threads().Resume(thread->thread);
  return 1;
}

BOOL WINAPI Terminate(HANDLE handle, DWORD exitCode) {
  Threads().Point("TerminateThread");
  const KernelObjectPtr thread = Kernel().Find(handle, "TerminateThread");
  if (thread == nullptr) return FALSE;
  Kernel().Terminate(*thread, exitCode);
  return TRUE;
}

BOOL WINAPI GetExitCode(HANDLE handle, LPDWORD exitCode) {
  const KernelObjectPtr thread = Kernel().Find(handle, "GetExitCodeThread");
  if (thread == nullptr) return FALSE;
  *exitCode = thread->exitCode;
  return TRUE;
}

void WINAPI EndThread(DWORD exitCode) {
  Threads().Point("ExitThread");
  Kernel().ExitThread(exitCode);
}

void __cdecl EndRuntimeThread(unsigned exitCode) {
  Threads().Point("_endthreadex");
  Kernel().ExitThread(exitCode);
}

void WINAPI FreeModuleAndExit(HMODULE module, DWORD exitCode) {
  Threads().Point("FreeLibraryAndExitThread");
  TheMachine().system.DropModule(module);
  Kernel().ExitThread(exitCode);
}

ULONGLONG WINAPI Now64() { return Threads().NowMs(); }

DWORD WINAPI Now32() { return static_cast<DWORD>(Threads().NowMs()); }

DWORD WINAPI OwnId() {
  const ThreadId self = Threads().Current();
  return self == kNoThread ? ::GetCurrentThreadId() : KernelModel::IdOf(self);
}

BOOL WINAPI GuaranteeStack(PULONG) { return TRUE; }

}  // namespace

std::span<const Thunk> KernelThunks() {
  static const Thunk thunks[] = {
      MakeThunk("CreateEventW", &MakeEvent),
      MakeThunk("CreateMutexW", &MakeMutex),
      MakeThunk("SetEvent", &Signal),
      MakeThunk("ResetEvent", &Unsignal),
      MakeThunk("ReleaseMutex", &GiveMutex),
      MakeThunk("CloseHandle", &Close),
      MakeThunk("DuplicateHandle", &Duplicate),
      MakeThunk("SetHandleInformation", &SetInformation),
      MakeThunk("WaitForSingleObject", &WaitOne),
      MakeThunk("WaitForSingleObjectEx", &WaitOneEx),
      MakeThunk("WaitForMultipleObjects", &WaitSeveral),
      MakeThunk("Sleep", &SleepFor),
      MakeThunk("_beginthreadex", &BeginThread),
      MakeThunk("ResumeThread", &Resume),
      MakeThunk("TerminateThread", &Terminate),
      MakeThunk("GetExitCodeThread", &GetExitCode),
      MakeThunk("ExitThread", &EndThread),
      MakeThunk("_endthreadex", &EndRuntimeThread),
      MakeThunk("FreeLibraryAndExitThread", &FreeModuleAndExit),
      MakeThunk("GetTickCount64", &Now64),
      MakeThunk("GetTickCount", &Now32),
      MakeThunk("GetCurrentThreadId", &OwnId),
      MakeThunk("SetThreadStackGuarantee", &GuaranteeStack),
  };
  return thunks;
}

}  // namespace kova::test
