#include "test/schedules/lock_model.h"

#include "test/schedules/machine.h"

namespace kova::test {

void LockModel::Enter(const char* call, void* address, bool recursive) {
  Lock& lock = m_locks[address];
  const ThreadId self = m_scheduler.Current();
  Await(call, [&lock, self, recursive] {
    if (lock.sharers > 0) return false;
    return !lock.taken || (recursive && lock.owner == self);
  });
  lock.taken = true;
  lock.owner = self;
  ++lock.depth;
}

void LockModel::Await(const char* call, const Scheduler::Ready& isFree) {
  const uint64_t startMs = m_scheduler.NowMs();
  m_scheduler.Await(call, isFree);
  CountWait(startMs);
}

void LockModel::CountWait(uint64_t startMs) {
  const uint64_t waitedMs = m_scheduler.NowMs() - startMs;
  if (waitedMs != 0) m_waitedMs[m_scheduler.Current()] += waitedMs;
}

uint64_t LockModel::WaitedMs(ThreadId thread) const {
  const auto found = m_waitedMs.find(thread);
  return found == m_waitedMs.end() ? 0 : found->second;
}

bool LockModel::TryEnter(void* address) {
  m_scheduler.Point("TryEnterCriticalSection");
  Lock& lock = m_locks[address];
  const ThreadId self = m_scheduler.Current();
  if (lock.taken && lock.owner != self) return false;
  lock.taken = true;
  lock.owner = self;
  ++lock.depth;
  return true;
}

void LockModel::Leave(const char* call, void* address) {
  m_scheduler.Point(call, Scheduler::Move::kStallOnly);
  Lock& lock = m_locks[address];
  if (!lock.taken || lock.owner != m_scheduler.Current()) {
    TheMachine().Complain(std::string(call) + " of a lock that is not held");
    return;
  }
  if (--lock.depth == 0) lock.taken = false;
}

void LockModel::EnterShared(const char* call, void* address) {
  Lock& lock = m_locks[address];
  Await(call, [&lock] { return !lock.taken; });
  ++lock.sharers;
}

void LockModel::LeaveShared(const char* call, void* address) {
  m_scheduler.Point(call, Scheduler::Move::kStallOnly);
  --m_locks[address].sharers;
}

void LockModel::Delete(void* section) {
  m_sections.erase(section);
  const auto found = m_locks.find(section);
  if (found == m_locks.end()) return;
  if (found->second.taken) {
    TheMachine().Complain("a critical section is deleted while it is held");
  }
  m_locks.erase(found);
}

void LockModel::Reset() {
  m_locks.clear();
  m_sections.clear();
}

namespace {

LockModel& Locks() { return TheMachine().locks; }

void WINAPI EnterSection(LPCRITICAL_SECTION section) {
  Locks().Enter("EnterCriticalSection", section, true);
}

BOOL WINAPI TryEnterSection(LPCRITICAL_SECTION section) {
  return Locks().TryEnter(section) ? TRUE : FALSE;
}

void WINAPI LeaveSection(LPCRITICAL_SECTION section) {
  Locks().Leave("LeaveCriticalSection", section);
}

void WINAPI InitialiseSection(LPCRITICAL_SECTION section) {
  ::InitializeCriticalSection(section);
  Locks().Initialise(section);
}

BOOL WINAPI InitialiseSpinning(LPCRITICAL_SECTION section, DWORD) {
  InitialiseSection(section);
  return TRUE;
}

BOOL WINAPI InitialiseExtended(LPCRITICAL_SECTION section, DWORD, DWORD) {
  InitialiseSection(section);
  return TRUE;
}

void WINAPI DeleteSection(LPCRITICAL_SECTION section) {
  Locks().Delete(section);
  ::DeleteCriticalSection(section);
}

void WINAPI AcquireExclusive(PSRWLOCK lock) {
  Locks().Enter("AcquireSRWLockExclusive", lock, false);
}

void WINAPI ReleaseExclusive(PSRWLOCK lock) {
  Locks().Leave("ReleaseSRWLockExclusive", lock);
}

void WINAPI AcquireShared(PSRWLOCK lock) {
  Locks().EnterShared("AcquireSRWLockShared", lock);
}

void WINAPI ReleaseShared(PSRWLOCK lock) {
  Locks().LeaveShared("ReleaseSRWLockShared", lock);
}

}  // namespace

std::span<const Thunk> LockThunks() {
  static const Thunk thunks[] = {
      MakeThunk("EnterCriticalSection", &EnterSection),
      MakeThunk("TryEnterCriticalSection", &TryEnterSection),
      MakeThunk("LeaveCriticalSection", &LeaveSection),
      MakeThunk("InitializeCriticalSection", &InitialiseSection),
      MakeThunk("InitializeCriticalSectionAndSpinCount", &InitialiseSpinning),
      MakeThunk("InitializeCriticalSectionEx", &InitialiseExtended),
      MakeThunk("DeleteCriticalSection", &DeleteSection),
      MakeThunk("AcquireSRWLockExclusive", &AcquireExclusive),
      MakeThunk("ReleaseSRWLockExclusive", &ReleaseExclusive),
      MakeThunk("AcquireSRWLockShared", &AcquireShared),
      MakeThunk("ReleaseSRWLockShared", &ReleaseShared),
  };
  return thunks;
}

}  // namespace kova::test
