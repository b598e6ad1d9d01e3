// Measures what small pieces of code cost beside each other.
#pragma once

#include <cstdint>
#include <vector>

namespace kova::bench {

// One thing to measure.
struct Case {
  const char* name;
  // Does it `times` times. Called on the measuring thread.
  void (*run)(int64_t times);
};

// How a group of cases is measured: in each round every case runs `times`
// times, one case after the other.
struct Plan {
  int rounds;
  int64_t times;
};

// What one case took, in nanoseconds for once, over all rounds.
struct Cost {
  double median;
  double lowerQuartile;
  double upperQuartile;
};

// The costs of `cases`, in their order. Rates drift on a busy machine by more
// than what is compared, hence rounds in which all cases take turns, each round
// beginning with another one, and medians. The distribution's benchmark
// libraries are built for its own machines alone or run a case to its end
// before the next, so this is a loop of its own.
std::vector<Cost> Measure(const std::vector<Case>& cases, const Plan& plan);

// Prints a table: each case's cost and its ratio to the first case's.
void PrintTable(const char* title, const std::vector<Case>& cases,
                const std::vector<Cost>& costs);

}  // namespace kova::bench
