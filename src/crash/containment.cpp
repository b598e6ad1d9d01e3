#include "crash/containment.h"

#include "base/windows_api.h"

namespace kova {
namespace {

// The code under which this C++ runtime raises what is thrown. Its handlers
// below are found by it, so the search for them must go on; every other code,
// that of another C++ runtime included, has no handler there.
constexpr DWORD kThrown = 0x20474343;

}  // namespace

__declspec(noinline) unsigned CallApart(GuardedBody body, void* argument) {
  return body(argument);
}

// No object with a destructor may live in this function.
void RunContained(GuardedBody body, void* argument) {
  __try {
    (void)CallApart(body, argument);
  } __except (GetExceptionCode() == kThrown ? EXCEPTION_CONTINUE_SEARCH
                                            : EXCEPTION_EXECUTE_HANDLER) {
  }
}

}  // namespace kova
