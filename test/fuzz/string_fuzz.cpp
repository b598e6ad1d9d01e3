// Histories of texts, chosen by the input, against a simple model of them.
#include <gtest/gtest.h>

#include "test/fuzz/fuzz_input.h"
#include "test/support/o_string_histories.h"

namespace {

constexpr int kMostSteps = 300;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  testing::InitGoogleTest(count, *arguments);
  GTEST_FLAG_SET(break_on_failure, true);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kova::fuzz::Input input(data, size);
  kova::test::Histories histories([&input] { return input.Byte(); });
  for (int step = 0; step < kMostSteps && !input.IsUsedUp(); ++step) {
    histories.Step();
  }
  return 0;
}
