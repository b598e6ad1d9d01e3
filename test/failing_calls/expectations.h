// What may follow when one call of the library fails.
#pragma once

#include <string>
#include <vector>

#include "test/failing_calls/scenario.h"

namespace kova::test {

// One function and how its calls fail.
struct FailingFunction {
  const char* name;
  uint64_t result;
  DWORD lastError;
  // What a client may get besides its answer, see Letter().
  const char* clients;
  // Every line of the channels Error and Warning begins with one of these,
  // after its channel. Empty: no such line comes.
  std::vector<const wchar_t*> lines;
  // Handles that stay open because it was the closing that failed.
  int lostHandles = 0;
};

// All functions whose failure a server can meet while it runs.
const std::vector<FailingFunction>& FailingFunctions();

// The functions that the library imports besides, by the reason why none of
// their calls is made to fail.
struct SoundFunctions {
  const char* reason;
  std::vector<const char*> names;
};
const std::vector<SoundFunctions>& FunctionsThatDoNotFail();

// '4' for kOwn400, 'C' kCut, 'N' kNothing, 'S' kSilence, 'O' kOther.
char Letter(Got got);

}  // namespace kova::test
