#include "test/schedules/kernel_model.h"

#include <algorithm>
#include <utility>

#include "test/schedules/machine.h"
#include "test/support/exported_function.h"

namespace kova::test {
namespace {

using Kind = KernelObject::Kind;

// Above every handle of the system.
constexpr uintptr_t kFirstHandle = 0x7A000000;
constexpr uintptr_t kHandleStep = 4;
constexpr DWORD kFirstThreadId = 0x7000;

Scheduler& Threads() { return TheMachine().scheduler; }
void Complain(const char* text) { TheMachine().Complain(text); }

using Query = LONG WINAPI(HANDLE, int, void*, ULONG, ULONG*);

// Whether the system's object behind the handle is of the query's kind.
template <typename State>
bool Ask(const char* query, HANDLE handle, State& state) {
  Query* const ask =
      ExportedFunction<Query>(::GetModuleHandleW(L"ntdll.dll"), query);
  return ask(handle, 0, &state, sizeof(state), nullptr) == 0;
}

bool IsSignalled(const KernelObject& object, ThreadId waiter) {
  if (object.kind == Kind::kEvent) return object.signalled;
  if (object.kind == Kind::kThread) return object.exitCode != STILL_ACTIVE;
  return object.depth == 0 || object.thread == waiter;
}

DWORD Take(KernelObject& object, ThreadId waiter) {
  if (object.kind == Kind::kEvent && !object.manual) object.signalled = false;
  if (object.kind != Kind::kMutex && object.kind != Kind::kSection) {
    return WAIT_OBJECT_0;
  }
  ++object.depth;
  object.thread = waiter;
  return std::exchange(object.abandoned, false) ? WAIT_ABANDONED_0
                                                : WAIT_OBJECT_0;
}

}  // namespace

void KernelModel::BeginRun() {
  m_threads.clear();
  m_waitedMs.clear();
}

void KernelModel::Reset() {
  BeginRun();
  m_handles.clear();
  m_adopted.clear();
  m_sections.clear();
  m_made.clear();
  m_starts.clear();
  m_next = kFirstHandle;
}

// --- Handles ---

HANDLE KernelModel::Add(const KernelObject& object) {
  m_next += kHandleStep;
  m_handles[m_next] = std::make_shared<KernelObject>(object);
  return reinterpret_cast<HANDLE>(m_next);
}

bool KernelModel::IsOurs(HANDLE handle) {
  const auto number = reinterpret_cast<uintptr_t>(handle);
  return number >= kFirstHandle && number < 2 * kFirstHandle;
}

KernelObjectPtr KernelModel::Find(HANDLE handle) {
  if (handle == ::GetCurrentThread()) return m_threads[Threads().Current()];
  if (!IsOurs(handle)) return Adopt(handle);
  const auto found = m_handles.find(reinterpret_cast<uintptr_t>(handle));
  if (found != m_handles.end()) return found->second;
  Complain("a closed handle is used");
  ::SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

// What the library made while it was being loaded.
KernelObjectPtr KernelModel::Adopt(HANDLE handle) {
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return nullptr;
  KernelObjectPtr& adopted = m_adopted[reinterpret_cast<uintptr_t>(handle)];
  if (adopted != nullptr) return adopted;
  struct {
    LONG type;
    LONG signalled;
  } event = {};
  struct {
    LONG count;
    BOOLEAN owned;
    BOOLEAN abandoned;
  } mutex = {};
  KernelObject object;
  if (Ask("NtQueryEvent", handle, event)) {
    object.manual = event.type == 0;
    object.signalled = event.signalled != 0;
  } else if (Ask("NtQueryMutant", handle, mutex)) {
    object.kind = Kind::kMutex;
  } else {
    return nullptr;
  }
  return adopted = std::make_shared<KernelObject>(object);
}

BOOL KernelModel::Close(HANDLE handle) {
  if (!IsOurs(handle)) {
    m_adopted.erase(reinterpret_cast<uintptr_t>(handle));
    return ::CloseHandle(handle);
  }
  if (Find(handle) != nullptr) {
    m_handles.erase(reinterpret_cast<uintptr_t>(handle));
  }
  return TRUE;
}

BOOL KernelModel::Duplicate(HANDLE from, HANDLE handle, HANDLE to,
                            LPHANDLE copy, DWORD access, BOOL inherit,
                            DWORD options) {
  if (handle != ::GetCurrentThread() && !IsOurs(handle)) {
    return ::DuplicateHandle(from, handle, to, copy, access, inherit, options);
  }
  const KernelObjectPtr object = Find(handle);
  if (object == nullptr) return FALSE;
  m_next += kHandleStep;
  m_handles[m_next] = object;
  *copy = reinterpret_cast<HANDLE>(m_next);
  return TRUE;
}

BOOL KernelModel::SetInformation(HANDLE handle, DWORD mask, DWORD flags) {
  const auto socket = reinterpret_cast<SOCKET>(handle);
  if (IsOurs(handle) || WinsockModel::IsOurs(socket)) return TRUE;
  return ::SetHandleInformation(handle, mask, flags);
}

// --- Events and waits ---

HANDLE KernelModel::MakeEvent(LPSECURITY_ATTRIBUTES, BOOL manual,
                              BOOL signalled, LPCWSTR) {
  KernelObject event;
  event.manual = manual != FALSE;
  event.signalled = signalled != FALSE;
  return Add(event);
}

BOOL KernelModel::ChangeEvent(HANDLE handle, bool signalled) {
  const KernelObjectPtr event = Find(handle);
  if (event == nullptr || event->kind != Kind::kEvent) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  event->signalled = signalled;
  return TRUE;
}

DWORD KernelModel::Wait(std::span<const HANDLE> handles, DWORD timeoutMs) {
  std::vector<KernelObjectPtr> objects;
  for (const HANDLE handle : handles) {
    objects.push_back(Find(handle));
    if (objects.back() == nullptr) {
      ::SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
  }
  // The scheduler asks on other threads, too.
  const ThreadId self = Threads().Current();
  const auto signalled = [self](const KernelObjectPtr& object) {
    return IsSignalled(*object, self);
  };
  const bool ready = Threads().Await(
      nullptr, [&] { return std::ranges::any_of(objects, signalled); },
      timeoutMs == INFINITE ? kNever : timeoutMs);
  for (const HANDLE handle : handles) {
    if (IsOurs(handle)) (void)Find(handle);  // closed while waited for
  }
  if (!ready) return WAIT_TIMEOUT;
  const auto first = std::ranges::find_if(objects, signalled);
  return Take(**first, self) + static_cast<DWORD>(first - objects.begin());
}

DWORD KernelModel::WaitOne(HANDLE handle, DWORD timeoutMs) {
  return Wait({&handle, 1}, timeoutMs);
}

// The server's locks that are mutexes are waited for by this call.
DWORD KernelModel::WaitOneEx(HANDLE handle, DWORD timeoutMs, BOOL alertable) {
  if (alertable) Complain("an alertable wait");
  const uint64_t startMs = Threads().NowMs();
  const DWORD result = WaitOne(handle, timeoutMs);
  CountWait(startMs);
  return result;
}

DWORD KernelModel::WaitSeveral(DWORD count, const HANDLE* handles, BOOL all,
                               DWORD timeoutMs) {
  if (all && count > 1) Complain("a wait for all of several");
  return Wait({handles, count}, timeoutMs);
}

DWORD KernelModel::WaitForSockets(DWORD count, const HANDLE* handles, BOOL all,
                                  DWORD timeoutMs, BOOL) {
  static_assert(WSA_INFINITE == INFINITE);
  return WaitSeveral(count, handles, all, timeoutMs);
}

void KernelModel::SleepFor(DWORD timeMs) { (void)Wait({}, timeMs); }

ULONGLONG KernelModel::Now64() { return Threads().NowMs(); }

// --- Locks ---

HANDLE KernelModel::MakeMutex(LPSECURITY_ATTRIBUTES, BOOL owned, LPCWSTR) {
  KernelObject mutex;
  mutex.kind = Kind::kMutex;
  mutex.thread = Threads().Current();
  mutex.depth = owned ? 1 : 0;
  return Add(mutex);
}

bool KernelModel::GiveLock(KernelObject* lock, const char* what) {
  if (lock == nullptr || lock->depth == 0 ||
      lock->thread != Threads().Current()) {
    Complain(what);
    return false;
  }
  --lock->depth;
  return true;
}

BOOL KernelModel::GiveMutex(HANDLE mutex) {
  if (GiveLock(Find(mutex).get(), "a mutex is given that is not held")) {
    return TRUE;
  }
  ::SetLastError(ERROR_NOT_OWNER);
  return FALSE;
}

KernelObject& KernelModel::SectionAt(LPCRITICAL_SECTION section) {
  KernelObject& object = m_sections[section];
  object.kind = Kind::kSection;
  return object;
}

void KernelModel::Initialise(LPCRITICAL_SECTION section) {
  ::InitializeCriticalSection(section);
  m_made.insert(section);
}

void KernelModel::Delete(LPCRITICAL_SECTION section) {
  if (SectionAt(section).depth > 0) {
    Complain("a critical section is deleted while it is held");
  }
  m_sections.erase(section);
  m_made.erase(section);
  ::DeleteCriticalSection(section);
}

void KernelModel::Enter(LPCRITICAL_SECTION section) {
  KernelObject& object = SectionAt(section);
  const ThreadId self = Threads().Current();
  const uint64_t startMs = Threads().NowMs();
  Threads().Await(nullptr, [&] { return IsSignalled(object, self); });
  CountWait(startMs);
  Take(object, self);
}

BOOL KernelModel::TryEnter(LPCRITICAL_SECTION section) {
  KernelObject& object = SectionAt(section);
  const ThreadId self = Threads().Current();
  const bool isFree = IsSignalled(object, self);
  if (isFree) Take(object, self);
  return isFree;
}

void KernelModel::Leave(LPCRITICAL_SECTION section) {
  GiveLock(&SectionAt(section), "a critical section is left that is not held");
}

void KernelModel::CountWait(uint64_t startMs) {
  const uint64_t waitedMs = Threads().NowMs() - startMs;
  if (waitedMs != 0) m_waitedMs[Threads().Current()] += waitedMs;
}

uint64_t KernelModel::WaitedMs(ThreadId thread) const {
  const auto found = m_waitedMs.find(thread);
  return found == m_waitedMs.end() ? 0 : found->second;
}

// --- Threads ---

// The server's threads in the order in which their procedures appear.
std::string KernelModel::NameThread(ThreadProcedure start) {
  constexpr const char* kNames[] = {"restart", "accept", "worker"};
  auto found = std::ranges::find(m_starts, start);
  if (found == m_starts.end()) found = m_starts.insert(found, start);
  const auto index = static_cast<size_t>(found - m_starts.begin());
  return index < std::size(kNames) ? kNames[index] : "server thread";
}

uintptr_t KernelModel::BeginThread(void*, unsigned, ThreadProcedure start,
                                   void* argument, unsigned flags,
                                   unsigned* id) {
  KernelObject thread;
  thread.kind = Kind::kThread;
  thread.thread = Threads().Begin(
      NameThread(start),
      [this, start, argument] { EndThread(start(argument)); }, true,
      (flags & CREATE_SUSPENDED) != 0);
  const HANDLE handle = Add(thread);
  m_threads[thread.thread] = Find(handle);
  if (id != nullptr) *id = kFirstThreadId + static_cast<DWORD>(thread.thread);
  return reinterpret_cast<uintptr_t>(handle);
}

DWORD KernelModel::OwnId() {
  const ThreadId self = Threads().Current();
  return self == kNoThread ? ::GetCurrentThreadId()
                           : kFirstThreadId + static_cast<DWORD>(self);
}

DWORD KernelModel::Resume(HANDLE handle) {
  const KernelObjectPtr thread = Find(handle);
  if (thread == nullptr) return static_cast<DWORD>(-1);
  Threads().Resume(thread->thread);
  return 1;
}

BOOL KernelModel::Terminate(HANDLE handle, DWORD exitCode) {
  const KernelObjectPtr thread = Find(handle);
  if (thread == nullptr) return FALSE;
  if (!Threads()[thread->thread].hasEnded) {
    Threads().Kill(thread->thread);
    EndOf(thread->thread, exitCode);
  }
  return TRUE;
}

void KernelModel::EndThread(DWORD exitCode) {
  EndOf(Threads().Current(), exitCode);
  Threads().Exit();
}

void KernelModel::FreeModuleAndExit(HMODULE module, DWORD exitCode) {
  TheMachine().system.DropModule(module);
  EndThread(exitCode);
}

void KernelModel::EndOf(ThreadId thread, DWORD exitCode) {
  const auto found = m_threads.find(thread);
  if (found == m_threads.end()) return;
  found->second->exitCode = exitCode;
  m_threads.erase(found);
  for (auto* const objects : {&m_handles, &m_adopted}) {
    for (const auto& [handle, object] : *objects) {
      if (object == nullptr || object->kind != Kind::kMutex ||
          object->depth == 0 || object->thread != thread) {
        continue;
      }
      object->depth = 0;
      object->abandoned = true;
    }
  }
}

std::span<const Thunk> KernelThunks() {
  using Model = KernelModel;
  constexpr Notice kName = Notice::kName;
  static const Thunk thunks[] = {
      At<"CreateEventW", &Model::MakeEvent, kName>(),
      At<"WSACreateEvent", &Model::MakeManualEvent, kName>(),
      At<"CreateMutexW", &Model::MakeMutex, kName>(),
      At<"SetEvent", &Model::Signal>(),
      At<"WSASetEvent", &Model::Signal>(),
      At<"ResetEvent", &Model::Unsignal>(),
      At<"ReleaseMutex", &Model::GiveMutex, Notice::kLate>(),
      At<"CloseHandle", &Model::Close, Notice::kClosing>(),
      At<"WSACloseEvent", &Model::Close, Notice::kClosing>(),
      At<"DuplicateHandle", &Model::Duplicate, kName>(),
      At<"SetHandleInformation", &Model::SetInformation, kName>(),
      At<"WaitForSingleObject", &Model::WaitOne, kName>(),
      At<"WaitForSingleObjectEx", &Model::WaitOneEx, kName>(),
      At<"WaitForMultipleObjects", &Model::WaitSeveral, kName>(),
      At<"WSAWaitForMultipleEvents", &Model::WaitForSockets, kName>(),
      At<"Sleep", &Model::SleepFor, kName>(),
      At<"_beginthreadex", &Model::BeginThread>(),
      At<"ResumeThread", &Model::Resume>(),
      At<"TerminateThread", &Model::Terminate>(),
      At<"ExitThread", &Model::EndThread>(),
      At<"_endthreadex", &Model::EndThread>(),
      At<"FreeLibraryAndExitThread", &Model::FreeModuleAndExit>(),
      Silently<"GetTickCount64", &Model::Now64>(),
      Silently<"GetTickCount", &Model::Now32>(),
      Silently<"GetCurrentThreadId", &Model::OwnId>(),
      By("SetThreadStackGuarantee", [](PULONG) { return TRUE; }),
      At<"InitializeCriticalSection", &Model::Initialise, kName>(),
      At<"DeleteCriticalSection", &Model::Delete, kName>(),
      At<"EnterCriticalSection", &Model::Enter, kName>(),
      At<"TryEnterCriticalSection", &Model::TryEnter>(),
      At<"LeaveCriticalSection", &Model::Leave, Notice::kLate>(),
  };
  return thunks;
}

}  // namespace kova::test
