// Critical sections and slim locks, as a model.
#pragma once

#include <map>
#include <set>
#include <span>

#include "test/schedules/scheduler.h"
#include "test/schedules/thunk.h"

namespace kova::test {

// Locks are known by their address; what lies there is not touched, but by the
// system's own functions that make and delete a critical section. A lock whose
// owner was killed stays taken.
class LockModel {
 public:
  explicit LockModel(Scheduler& scheduler) : m_scheduler(scheduler) {}

  void Enter(const char* call, void* lock, bool recursive);
  [[nodiscard]] bool TryEnter(void* lock);
  void Leave(const char* call, void* lock);
  void EnterShared(const char* call, void* lock);
  void LeaveShared(const char* call, void* lock);

  void Initialise(void* section) { m_sections.insert(section); }
  void Delete(void* section);
  // The critical sections that were made and not deleted.
  [[nodiscard]] size_t Initialised() const { return m_sections.size(); }
  // The running thread has waited for a lock, a mutex of the kernel's perhaps.
  void CountWait(uint64_t startMs);
  // How long a thread of this run has waited for locks.
  [[nodiscard]] uint64_t WaitedMs(ThreadId thread) const;
  void ForgetWaits() { m_waitedMs.clear(); }
  void Reset();

 private:
  struct Lock {
    bool taken = false;
    ThreadId owner = kNoThread;
    int depth = 0;
    int sharers = 0;
  };

  void Await(const char* call, const Scheduler::Ready& isFree);

  Scheduler& m_scheduler;
  std::map<ThreadId, uint64_t> m_waitedMs;
  std::map<void*, Lock> m_locks;
  std::set<void*> m_sections;
};

[[nodiscard]] std::span<const Thunk> LockThunks();

}  // namespace kova::test
