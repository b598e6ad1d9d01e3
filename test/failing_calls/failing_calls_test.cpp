// Whole: each call that the library makes fails once.
#include <gmock/gmock.h>

#include <cstdio>

#include "test/failing_calls/scenario.h"

namespace kova::test {
namespace {

TEST(FailingCalls, Survey) {
  Scenario scenario;
  ASSERT_TRUE(scenario.IsReady());
  for (int i = 0; i < 4; ++i) {
    const Outcome o = scenario.Run({});
    std::printf("%d %d %d %d, %llu ms, again %d unloaded %d t %d h %d r %d\n",
                int(o.refused), int(o.routed), int(o.large),
                int(o.afterRestart), o.elapsedMs, o.servesAgain, o.unloaded,
                o.threadsLeft, o.handlesLeft, o.responsesLeft);
    for (auto& l : o.troubles) std::printf("  %ls\n", l.c_str());
  }
  for (const auto& [name, calls] : scenario.Calls()) {
    std::printf("%s %u\n", name.c_str(), calls);
  }
}

}  // namespace
}  // namespace kova::test
