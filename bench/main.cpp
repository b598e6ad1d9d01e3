// Runs all benchmarks, one after the other.
#include <cstdio>

#include "bench/log_bench.h"

int main() {
  if (!kova::bench::BenchDisabledChannel()) {
    std::fputs("the log mask enables DetailInfoP: disable it first\n", stderr);
    return 1;
  }
  return 0;
}
