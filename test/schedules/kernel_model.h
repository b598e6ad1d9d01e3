// The part of Windows that makes, signals and waits for objects, as a model.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "test/schedules/scheduler.h"
#include "test/schedules/thunk.h"

namespace kova::test {

struct KernelObject {
  enum class Kind { kEvent, kThread, kMutex, kSection };
  Kind kind = Kind::kEvent;
  bool manual = false;
  bool signalled = false;         // an event
  ThreadId thread = kNoThread;    // a thread, or the owner of a lock
  int depth = 0;                  // of a lock's ownership; 0: it is free
  bool abandoned = false;         // a mutex whose owner ended
  DWORD exitCode = STILL_ACTIVE;  // a thread
};
using KernelObjectPtr = std::shared_ptr<KernelObject>;

// Handles, events, locks and threads. A handle of the model is never given out
// twice, so that the use of a closed one is always seen. A critical section is
// known by its address; what lies there is touched by the system's own
// functions alone, which make and delete it. One whose owner was killed stays
// taken, while a mutex is passed on.
class KernelModel {
 public:
  using ThreadProcedure = unsigned(__stdcall*)(void*);

  KernelModel() { Reset(); }

  // The library's calls, see KernelThunks().
  HANDLE MakeEvent(LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled,
                   LPCWSTR name);
  HANDLE MakeManualEvent() { return MakeEvent(nullptr, TRUE, FALSE, nullptr); }
  HANDLE MakeMutex(LPSECURITY_ATTRIBUTES security, BOOL owned, LPCWSTR name);
  BOOL Signal(HANDLE event) { return ChangeEvent(event, true); }
  BOOL Unsignal(HANDLE event) { return ChangeEvent(event, false); }
  BOOL GiveMutex(HANDLE mutex);
  BOOL Close(HANDLE handle);
  BOOL Duplicate(HANDLE from, HANDLE handle, HANDLE to, LPHANDLE copy,
                 DWORD access, BOOL inherit, DWORD options);
  BOOL SetInformation(HANDLE handle, DWORD mask, DWORD flags);
  DWORD WaitOne(HANDLE handle, DWORD timeoutMs);
  DWORD WaitOneEx(HANDLE handle, DWORD timeoutMs, BOOL alertable);
  DWORD WaitSeveral(DWORD count, const HANDLE* handles, BOOL all,
                    DWORD timeoutMs);
  DWORD WaitForSockets(DWORD count, const HANDLE* handles, BOOL all,
                       DWORD timeoutMs, BOOL alertable);
  void SleepFor(DWORD timeMs);
  uintptr_t BeginThread(void* security, unsigned stackBytes,
                        ThreadProcedure start, void* argument, unsigned flags,
                        unsigned* id);
  DWORD Resume(HANDLE thread);
  BOOL Terminate(HANDLE thread, DWORD exitCode);
  void EndThread(DWORD exitCode);
  void FreeModuleAndExit(HMODULE module, DWORD exitCode);
  ULONGLONG Now64();
  DWORD Now32() { return static_cast<DWORD>(Now64()); }
  DWORD OwnId();
  void Initialise(LPCRITICAL_SECTION section);
  void Delete(LPCRITICAL_SECTION section);
  void Enter(LPCRITICAL_SECTION section);
  BOOL TryEnter(LPCRITICAL_SECTION section);
  void Leave(LPCRITICAL_SECTION section);

  // Null, and a complaint, for a handle of the model that is closed. Null for
  // every handle that is not the model's and no event or mutex of the system;
  // those are taken into the model as they are.
  KernelObjectPtr Find(HANDLE handle);
  [[nodiscard]] static bool IsOurs(HANDLE handle);

  // How long a thread of this run has waited for locks.
  [[nodiscard]] uint64_t WaitedMs(ThreadId thread) const;
  // What is open; the critical sections that were made and not deleted.
  [[nodiscard]] size_t OpenHandles() const { return m_handles.size(); }
  [[nodiscard]] size_t Sections() const { return m_made.size(); }
  // No thread lives, nobody has waited.
  void BeginRun();
  // Nothing has been made.
  void Reset();

 private:
  HANDLE Add(const KernelObject& object);
  KernelObjectPtr Adopt(HANDLE handle);
  BOOL ChangeEvent(HANDLE handle, bool signalled);
  DWORD Wait(std::span<const HANDLE> handles, DWORD timeoutMs);
  KernelObject& SectionAt(LPCRITICAL_SECTION section);
  bool GiveLock(KernelObject* lock, const char* what);
  void CountWait(uint64_t startMs);
  std::string NameThread(ThreadProcedure start);
  void EndOf(ThreadId thread, DWORD exitCode);

  std::map<uintptr_t, KernelObjectPtr> m_handles;
  std::map<uintptr_t, KernelObjectPtr> m_adopted;  // by the system's handle
  std::map<ThreadId, KernelObjectPtr> m_threads;   // those that live
  std::map<LPCRITICAL_SECTION, KernelObject> m_sections;
  std::set<LPCRITICAL_SECTION> m_made;
  std::map<ThreadId, uint64_t> m_waitedMs;
  std::vector<ThreadProcedure> m_starts;  // in order of appearance
  uintptr_t m_next = 0;
};

[[nodiscard]] std::span<const Thunk> KernelThunks();

}  // namespace kova::test
