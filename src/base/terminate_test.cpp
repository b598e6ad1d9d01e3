// Whole: how a program ends whose exception can go nowhere.
#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace {

// The exit code of abort().
const testing::ExitedWithCode g_aborted(3);

void ThrowWhereNothingMayBeThrown() noexcept {
  (void)std::string("x").substr(2);
}

TEST(TerminateDeathTest, SaysTheTypeOfAnExceptionAndAborts) {
  EXPECT_EXIT(ThrowWhereNothingMayBeThrown(), g_aborted,
              "terminate called after throwing an instance of "
              "'St12out_of_range'");
}

TEST(TerminateDeathTest, SaysThatThereIsNoExceptionAndAborts) {
  EXPECT_EXIT(std::terminate(), g_aborted,
              "terminate called without an active exception");
}

}  // namespace
