// A host in which one of the server library's allocations fails.
//
//   failing_allocation_host FUNCTION NTH
//
// Its exit codes are those of failing_allocation.h.
#include "test/failing_calls/failing_allocation.h"

#include <cstdlib>

#include "test/failing_calls/scenario.h"

namespace {

using kova::test::Got;
using kova::test::Outcome;

void EndAtTheFilter() {
  ::TerminateProcess(::GetCurrentProcess(), kova::test::kReachedTheFilter);
}

bool IsClean(Got got) { return got != Got::kOther && got != Got::kSilence; }

bool CameThrough(const Outcome& outcome) {
  return IsClean(outcome.refused) && IsClean(outcome.routed) &&
         IsClean(outcome.large) && IsClean(outcome.afterRestart) &&
         outcome.servesAgain && outcome.unloaded && outcome.threadsLeft == 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return kova::test::kNotReady;
  ::SetErrorMode(SEM_NOGPFAULTERRORBOX | SEM_FAILCRITICALERRORS);
  kova::test::FailureScenario scenario(&EndAtTheFilter);
  if (!scenario.IsReady()) return kova::test::kNotReady;
  const auto nth =
      static_cast<uint32_t>(std::strtoul(arguments[2], nullptr, 10));
  const Outcome outcome =
      scenario.Run({arguments[1], nth, {0, ERROR_NOT_ENOUGH_MEMORY}});
  if (!outcome.failed) return kova::test::kNeverCalled;
  return CameThrough(outcome) ? kova::test::kCameThrough
                              : kova::test::kNotAsItMust;
}
