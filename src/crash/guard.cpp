#include "crash/guard.h"

#include "base/windows_api.h"
#include "crash/crash_utility.h"

namespace kova {
namespace {

// A fault in an instruction that stands in the guarded block itself may not
// reach the filter, because the compiler models calls only; hence the call
// that cannot be inlined.
__attribute__((noinline)) unsigned CallBody(GuardedBody body, void* argument) {
  return body(argument);
}

}  // namespace

// No object with a destructor may live in this function.
unsigned RunGuarded(GuardedBody body, void* argument) {
  unsigned result = 0;
  __try {
    result = CallBody(body, argument);
  } __except (CrashUtility::RecordSEH(GetExceptionInformation())) {
    // Never entered: the filter always lets the search continue.
  }
  return result;
}

}  // namespace kova
