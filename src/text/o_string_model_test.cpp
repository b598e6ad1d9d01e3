// Unit: long random histories of texts against a simple model of them.
#include <gtest/gtest.h>

#include <random>

#include "test/support/o_string_histories.h"

namespace {

using kova::test::Histories;

class OStringModelTest : public testing::TestWithParam<unsigned> {};

TEST_P(OStringModelTest, BehavesLikeTheModel) {
  std::mt19937 random(GetParam());
  Histories histories([&random] { return static_cast<unsigned>(random()); });
  for (int step = 0; step < 20000; ++step) {
    histories.Step();
    ASSERT_FALSE(testing::Test::HasFailure()) << "at step " << step;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, OStringModelTest, testing::Range(1u, 9u));

}  // namespace
