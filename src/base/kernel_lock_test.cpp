// Patched: a lock that its threads leave behind.
#include "base/kernel_lock.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "test/support/import_patch.h"
#include "test/support/process_counts.h"

namespace {

using kova::KernelLock;
using kova::UniqueKernelHandle;
using kova::test::ImportPatch;

constexpr DWORD kPatienceMs = 10000;
constexpr DWORD kCrash = 0xE0004660;

// A thread that takes a lock, whatever comes of it.
class Taker {
 public:
  explicit Taker(KernelLock& lock)
      : m_thread(::CreateThread(nullptr, 0, &Take, &lock, 0, nullptr)) {}
  ~Taker() { EXPECT_TRUE(HasCome()); }

  Taker(const Taker&) = delete;
  Taker& operator=(const Taker&) = delete;

  // Whether the thread has had the lock, within `patienceMs`.
  [[nodiscard]] bool HasCome(DWORD patienceMs = kPatienceMs) const {
    return ::WaitForSingleObject(m_thread.Get(), patienceMs) == WAIT_OBJECT_0;
  }

 private:
  static DWORD WINAPI Take(void* lock) {
    static_cast<KernelLock*>(lock)->Hold([] {});
    return 0;
  }
  const UniqueKernelHandle m_thread;
};

// Handles an exception as a host may. No object with a destructor may live in
// this function.
DWORD CrashWhileHolding(KernelLock& lock) {
  DWORD code = 0;
  __try {
    lock.Hold([] { ::RaiseException(kCrash, 0, 0, nullptr); });
  } __except (code = GetExceptionCode(), EXCEPTION_EXECUTE_HANDLER) {
  }
  return code;
}

TEST(KernelLockTest, KeepsOthersOutWhileTheWorkIsDone) {
  KernelLock lock;
  int done = 0;
  std::unique_ptr<Taker> other;
  lock.Hold([&] {
    other = std::make_unique<Taker>(lock);
    EXPECT_FALSE(other->HasCome(20));
    ++done;
  });
  EXPECT_TRUE(other->HasCome());
  EXPECT_EQ(done, 1);
}

TEST(KernelLockTest, MayBeTakenAgainByTheThreadThatHoldsIt) {
  KernelLock lock;
  int done = 0;
  lock.Hold([&] { lock.Hold([&] { ++done; }); });
  EXPECT_EQ(done, 1);
  EXPECT_TRUE(Taker(lock).HasCome());
}

TEST(KernelLockTest, IsGivenBackByACrashThatSomebodyHandles) {
  KernelLock lock;
  EXPECT_EQ(CrashWhileHolding(lock), kCrash);
  EXPECT_TRUE(Taker(lock).HasCome());
}

TEST(KernelLockTest, IsGivenBackByAThrownException) {
  KernelLock lock;
  EXPECT_THROW(lock.Hold([] { throw 4660; }), int);
  EXPECT_TRUE(Taker(lock).HasCome());
}

struct Stuck {
  KernelLock lock;
  const UniqueKernelHandle held{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

DWORD WINAPI HoldForEver(void* argument) {
  auto& stuck = *static_cast<Stuck*>(argument);
  stuck.lock.Hold([&] {
    ::SetEvent(stuck.held.Get());
    ::Sleep(INFINITE);
  });
  return 0;
}

// A thread that has the lock and is killed when this goes.
class Victim {
 public:
  explicit Victim(Stuck& stuck)
      : m_thread(::CreateThread(nullptr, 0, &HoldForEver, &stuck, 0, nullptr)) {
    EXPECT_EQ(::WaitForSingleObject(stuck.held.Get(), kPatienceMs),
              WAIT_OBJECT_0);
  }
  ~Victim() {
    ::TerminateThread(m_thread.Get(), 0);
    ::WaitForSingleObject(m_thread.Get(), kPatienceMs);
  }

  Victim(const Victim&) = delete;
  Victim& operator=(const Victim&) = delete;

 private:
  const UniqueKernelHandle m_thread;
};

TEST(KernelLockTest, IsTakenOverFromAThreadThatWasKilled) {
  Stuck stuck;
  std::optional<Victim> victim(stuck);
  const Taker other(stuck.lock);
  EXPECT_FALSE(other.HasCome(20));
  victim.reset();
  EXPECT_TRUE(other.HasCome());
}

TEST(KernelLockTest, IsGivenBackByWhoTookItOver) {
  Stuck stuck;
  (void)Victim(stuck);
  stuck.lock.Hold([] {});
  EXPECT_TRUE(Taker(stuck.lock).HasCome());
}

HANDLE WINAPI NoMutex(SECURITY_ATTRIBUTES*, BOOL, LPCWSTR) { return nullptr; }
DWORD WINAPI FailToWait(HANDLE, DWORD, BOOL) { return WAIT_FAILED; }
int g_released = 0;
BOOL WINAPI CountReleases(HANDLE) {
  ++g_released;
  return TRUE;
}

TEST(KernelLockTest, KeepsOthersOutWhereTheSystemHasNoMutex) {
  const ImportPatch<decltype(CreateMutexW)> create(nullptr, "CreateMutexW",
                                                   &NoMutex);
  KernelLock lock;
  std::unique_ptr<Taker> other;
  lock.Hold([&] {
    other = std::make_unique<Taker>(lock);
    EXPECT_FALSE(other->HasCome(20));
  });
  EXPECT_TRUE(other->HasCome());
  EXPECT_EQ(CrashWhileHolding(lock), kCrash);
  EXPECT_TRUE(Taker(lock).HasCome());
}

TEST(KernelLockTest, TheWorkIsDoneWhereThereIsNoMutexToWaitFor) {
  int done = 0;
  const ImportPatch<decltype(ReleaseMutex)> release(nullptr, "ReleaseMutex",
                                                    &CountReleases);
  g_released = 0;
  {
    const ImportPatch<decltype(CreateMutexW)> create(nullptr, "CreateMutexW",
                                                     &NoMutex);
    KernelLock lock;
    lock.Hold([&] { ++done; });
  }
  const ImportPatch<decltype(WaitForSingleObjectEx)> wait(
      nullptr, "WaitForSingleObjectEx", &FailToWait);
  KernelLock lock;
  lock.Hold([&] { ++done; });
  EXPECT_EQ(done, 2);
  EXPECT_EQ(g_released, 0);
}

TEST(KernelLockTest, LeavesNoHandleBehind) {
  const size_t handles = kova::test::CountHandles();
  for (int i = 0; i < 100; ++i) KernelLock().Hold([] {});
  EXPECT_LT(kova::test::CountHandles(), handles + 50);
}

}  // namespace
