// The lock classes: an abstract lock, the critical section, a scoped owner, and
// the names by which the compiler checks who holds what.
#pragma once

#include <memory>

#include "base/windows_api.h"

// Names for clang's lock analysis (-Wthread-safety); nothing to other
// compilers.
#if defined(__clang__)
#define KOVA_ANNOTATE(x) __attribute__((x))
#else
#define KOVA_ANNOTATE(x)
#endif

#define KOVA_CAPABILITY(name) KOVA_ANNOTATE(capability(name))
#define KOVA_SCOPED_CAPABILITY KOVA_ANNOTATE(scoped_lockable)
#define KOVA_GUARDED_BY(lock) KOVA_ANNOTATE(guarded_by(lock))
#define KOVA_ACQUIRE(...) KOVA_ANNOTATE(acquire_capability(__VA_ARGS__))
#define KOVA_RELEASE(...) KOVA_ANNOTATE(release_capability(__VA_ARGS__))
#define KOVA_REQUIRES(...) KOVA_ANNOTATE(requires_capability(__VA_ARGS__))
#define KOVA_EXCLUDES(...) KOVA_ANNOTATE(locks_excluded(__VA_ARGS__))
#define KOVA_NO_THREAD_SAFETY_ANALYSIS KOVA_ANNOTATE(no_thread_safety_analysis)

// A lock that can be entered and left.
class KOVA_CAPABILITY("lock") OSynchronizer {
 public:
  virtual ~OSynchronizer() = default;

  // Waits without limit until the calling thread holds the lock.
  virtual void Enter() KOVA_ACQUIRE() = 0;
  // Gives up one Enter() of the calling thread, which must hold the lock.
  virtual void Leave() KOVA_RELEASE() = 0;
};

// A Windows critical section on the heap. Recursive for the thread that holds
// it: every Enter() needs one Leave(). No try-enter and no time-out. Must not
// be destroyed while any thread holds it or waits for it.
class OCriticalSection : public OSynchronizer {
 public:
  OCriticalSection();
  ~OCriticalSection() override;

  OCriticalSection(const OCriticalSection&) = delete;
  OCriticalSection& operator=(const OCriticalSection&) = delete;

  void Enter() override KOVA_ACQUIRE();
  void Leave() override KOVA_RELEASE();

 private:
  const std::unique_ptr<CRITICAL_SECTION> m_section;
};

// Holds a lock from its construction to the end of its scope.
class KOVA_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(OSynchronizer& lock) KOVA_ACQUIRE(lock) : m_lock(lock) {
    m_lock.Enter();
  }
  ~ScopedLock() KOVA_RELEASE() { m_lock.Leave(); }

  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  OSynchronizer& m_lock;
};
