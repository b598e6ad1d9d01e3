#include "crash/guard.h"

#include "base/windows_api.h"
#include "crash/crash_utility.h"

namespace kova {
namespace {

// What the filter may use of the stack after the stack has overflowed: it
// composes log lines and writes a dump.
constexpr ULONG kStackGuaranteeBytes = 64 * 1024;

}  // namespace

// No object with a destructor may live in this function, and nothing may stand
// in the block but a call: the compiler takes calls alone for something that
// may raise.
unsigned RunGuarded(GuardedBody body, void* argument) {
  // Deliberate: for good, on the host's threads, too. There is no way to lower
  // it again.
  ULONG guaranteeBytes = kStackGuaranteeBytes;
  ::SetThreadStackGuarantee(&guaranteeBytes);
  unsigned result = 0;
  __try {
    result = body(argument);
  } __except (CrashUtility::RecordSEH(GetExceptionInformation())) {
    // Never entered: the filter always lets the search continue.
  }
  return result;
}

}  // namespace kova
