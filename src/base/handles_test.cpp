// Unit: the owner of a handle, with a kind of handle of its own.
#include "base/handles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD kError = 4711;

std::vector<int> g_closed;

// Closing changes the last error, as the calls of Windows may.
struct NumberTraits {
  using Value = int;
  static Value None() { return -1; }
  static void Close(Value value) {
    g_closed.push_back(value);
    ::SetLastError(1);
  }
};
using UniqueNumber = kova::UniqueHandle<NumberTraits>;

class UniqueHandleTest : public testing::Test {
 protected:
  UniqueHandleTest() {
    g_closed.clear();
    ::SetLastError(kError);
  }
};

TEST_F(UniqueHandleTest, ClosesOnceAtTheEndOfItsScope) {
  {
    UniqueNumber first(1);
    UniqueNumber second(std::move(first));
    EXPECT_FALSE(first.IsValid());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(second.Get(), 1);
    const UniqueNumber none;
    EXPECT_FALSE(none.IsValid());
  }
  EXPECT_THAT(g_closed, ElementsAre(1));
}

TEST_F(UniqueHandleTest, ClosesWhatItHeldWhenItTakesAnother) {
  UniqueNumber handle(1);
  handle.Reset(2);
  EXPECT_THAT(g_closed, ElementsAre(1));
  handle = UniqueNumber(3);
  EXPECT_THAT(g_closed, ElementsAre(1, 2));
  *handle.Receive() = 4;
  EXPECT_THAT(g_closed, ElementsAre(1, 2, 3));
  EXPECT_EQ(handle.Release(), 4);
  handle.Reset();
  EXPECT_THAT(g_closed, ElementsAre(1, 2, 3));
}

TEST_F(UniqueHandleTest, ZeroIsAHandleWhereNoneIsSomethingElse) {
  {
    const UniqueNumber zero(0);
  }
  EXPECT_THAT(g_closed, ElementsAre(0));
}

// Otherwise an owner that leaves its scope would hide why a call failed.
TEST_F(UniqueHandleTest, ClosingKeepsTheLastError) {
  {
    const UniqueNumber handle(1);
  }
  EXPECT_EQ(::GetLastError(), kError);
  UniqueNumber handle(2);
  handle.Reset(3);
  EXPECT_EQ(::GetLastError(), kError);
  handle = UniqueNumber(4);
  EXPECT_EQ(::GetLastError(), kError);
  (void)handle.Receive();
  EXPECT_EQ(::GetLastError(), kError);
  EXPECT_THAT(g_closed, ElementsAre(1, 2, 3, 4));
}

TEST_F(UniqueHandleTest, MovedOntoItselfItKeepsItsHandle) {
  UniqueNumber handle(1);
  UniqueNumber& self = handle;
  handle = std::move(self);
  EXPECT_EQ(handle.Get(), 1);
  EXPECT_THAT(g_closed, IsEmpty());
}

}  // namespace
