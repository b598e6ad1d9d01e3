// For tests that repeat: how often.
#pragma once

#include "base/windows_api.h"

namespace kova::test {

// `quick` in the quick form of the tests; `full` if the environment has
// KOVA_LONG, whatever its value.
inline int Rounds(int quick, int full) {
  return ::GetEnvironmentVariableW(L"KOVA_LONG", nullptr, 0) == 0 ? quick
                                                                  : full;
}

}  // namespace kova::test
