#include "crash/guard.h"

#include "base/windows_api.h"
#include "crash/crash_utility.h"

namespace kova {
namespace {

// What the filter may use of the stack after the stack has overflowed: it
// composes log lines and writes a dump.
constexpr ULONG kStackGuaranteeBytes = 64 * 1024;

// The code under which this C++ runtime raises what is thrown. Its handlers
// below are found by it, so the search for them must go on; every other code,
// that of another C++ runtime included, has no handler there.
constexpr DWORD kThrown = 0x20474343;

// A fault in an instruction that stands in the guarded block itself may not
// reach the filter, because the compiler models calls only; hence the call
// that cannot be inlined.
__declspec(noinline) unsigned CallBody(GuardedBody body, void* argument) {
  return body(argument);
}

}  // namespace

// No object with a destructor may live in this function.
unsigned RunGuarded(GuardedBody body, void* argument) {
  // Deliberate: for good, on the host's threads, too. There is no way to lower
  // it again.
  ULONG guaranteeBytes = kStackGuaranteeBytes;
  ::SetThreadStackGuarantee(&guaranteeBytes);
  unsigned result = 0;
  __try {
    result = CallBody(body, argument);
  } __except (CrashUtility::RecordSEH(GetExceptionInformation())) {
    // Never entered: the filter always lets the search continue.
  }
  return result;
}

// No object with a destructor may live in this function.
void RunContained(GuardedBody body, void* argument) {
  __try {
    (void)CallBody(body, argument);
  } __except (GetExceptionCode() == kThrown ? EXCEPTION_CONTINUE_SEARCH
                                            : EXCEPTION_EXECUTE_HANDLER) {
  }
}

}  // namespace kova
