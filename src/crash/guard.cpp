#include "crash/guard.h"

#include "base/windows_api.h"
#include "crash/crash_utility.h"

namespace kova {
namespace {

// What the filter may use of the stack after the stack has overflowed: it
// composes log lines and writes a dump.
constexpr ULONG kStackGuaranteeBytes = 64 * 1024;

// The codes under which the C++ runtimes of this platform raise what is thrown.
// Only their own handlers may end the search for those.
bool IsThrown(DWORD code) {
  constexpr DWORD kThrownByGcc = 0x20474343;
  constexpr DWORD kThrownByMsvc = 0xE06D7363;
  return code == kThrownByGcc || code == kThrownByMsvc;
}

// A fault in an instruction that stands in the guarded block itself may not
// reach the filter, because the compiler models calls only; hence the call
// that cannot be inlined.
__declspec(noinline) unsigned CallBody(GuardedBody body, void* argument) {
  return body(argument);
}

}  // namespace

// No object with a destructor may live in this function.
unsigned RunGuarded(GuardedBody body, void* argument) {
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
  } __except (IsThrown(GetExceptionCode()) ? EXCEPTION_CONTINUE_SEARCH
                                           : EXCEPTION_EXECUTE_HANDLER) {
  }
}

}  // namespace kova
