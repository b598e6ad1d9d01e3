// Unit: the lock classes.
#include "base/o_critical_section.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "test/support/virtual_slot.h"

namespace {

TEST(OSynchronizerTest, HasItsDestructorThenEnterThenLeave) {
  constexpr size_t kNext = kova::test::kDestructorSlots;
  EXPECT_EQ(kova::test::SlotOf(&OSynchronizer::Enter), kNext);
  EXPECT_EQ(kova::test::SlotOf(&OSynchronizer::Leave), kNext + 1);
}

TEST(OCriticalSectionTest, ExcludesOtherThreads) {
  OCriticalSection lock;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 10000; ++n) {
        const ScopedLock held(lock);
        ++counter;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 40000);
}

// A function of its own, so that the compiler's lock analysis, which knows
// nothing of recursive locks, sees one acquisition at a time.
void EnterAgain(OCriticalSection& lock, int& entered) {
  const ScopedLock held(lock);
  ++entered;
}

TEST(OCriticalSectionTest, MayBeEnteredAgainByTheThreadThatHoldsIt) {
  OCriticalSection lock;
  int entered = 0;
  {
    const ScopedLock outer(lock);
    EnterAgain(lock, entered);
  }
  std::thread other([&] { EnterAgain(lock, entered); });
  other.join();
  EXPECT_EQ(entered, 2);
}

}  // namespace
