// The part of Windows that makes, signals and waits for objects, as a model.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "test/schedules/scheduler.h"
#include "test/schedules/thunk.h"

namespace kova::test {

struct KernelObject {
  enum class Kind { kEvent, kThread, kMutex };
  Kind kind = Kind::kEvent;
  bool manual = false;
  bool signalled = false;         // an event
  ThreadId thread = kNoThread;    // a thread, or the owner of a mutex
  int depth = 0;                  // of a mutex's ownership
  bool owned = false;             // a mutex
  bool abandoned = false;         // a mutex whose owner ended
  DWORD exitCode = STILL_ACTIVE;  // a thread
};
using KernelObjectPtr = std::shared_ptr<KernelObject>;

// Handles, events, mutexes and threads. A handle of the model is never given
// out twice, so that the use of a closed one is always seen.
class KernelModel {
 public:
  using Complain = std::function<void(const std::string&)>;

  KernelModel(Scheduler& scheduler, Complain complain);

  HANDLE Add(KernelObjectPtr object);
  // Null, and a complaint that `call` got it, for a handle of the model that is
  // closed. Null for every handle that is not the model's and no event or
  // mutex of the system; those are taken into the model as they are.
  KernelObjectPtr Find(HANDLE handle, const char* call);
  // Whether it was a handle of the model.
  bool Close(HANDLE handle, const char* call);
  [[nodiscard]] static bool IsOurs(HANDLE handle);

  // As WaitForMultipleObjects; `all` is not known.
  DWORD Wait(const char* call, std::span<const HANDLE> handles,
             uint64_t timeoutMs);

  HANDLE BeginThread(unsigned(__stdcall* start)(void*), void* argument,
                     bool suspended, unsigned* id);
  // The system's number of a thread.
  [[nodiscard]] static DWORD IdOf(ThreadId thread);
  // Ends the running thread.
  [[noreturn]] void ExitThread(DWORD exitCode);
  void Terminate(const KernelObject& thread, DWORD exitCode);

  // What is open.
  [[nodiscard]] size_t OpenHandles() const { return m_handles.size(); }
  // Before a run: no thread lives.
  void ForgetThreads() { m_threads.clear(); }
  // Nothing has been made.
  void Reset();

 private:
  static bool IsSignalled(const KernelObject& object, ThreadId waiter);
  static DWORD Take(KernelObject& object, ThreadId waiter);
  KernelObjectPtr Adopt(HANDLE handle);
  std::string NameThread(void* start);
  void EndOfThread(ThreadId thread, DWORD exitCode);

  Scheduler& m_scheduler;
  const Complain m_complain;
  std::map<uintptr_t, KernelObjectPtr> m_handles;
  std::map<uintptr_t, KernelObjectPtr> m_adopted;  // by the system's handle
  std::map<ThreadId, KernelObjectPtr> m_threads;   // those that live
  std::vector<void*> m_starts;  // thread procedures in order of appearance
  uintptr_t m_next = 0;
};

// The calls of the library that the model answers.
[[nodiscard]] std::span<const Thunk> KernelThunks();

}  // namespace kova::test
