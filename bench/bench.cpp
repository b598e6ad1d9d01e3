#include "bench/bench.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <utility>

#include "base/windows_api.h"

namespace kova::bench {
namespace {

int64_t CounterNow() {
  LARGE_INTEGER now = {};
  ::QueryPerformanceCounter(&now);
  return now.QuadPart;
}

double NanosecondsPerCount() {
  LARGE_INTEGER perSecond = {};
  ::QueryPerformanceFrequency(&perSecond);
  return 1e9 / static_cast<double>(perSecond.QuadPart);
}

double TimeOnce(const Case& measured, int64_t times) {
  const int64_t start = CounterNow();
  measured.run(times);
  const auto counts = static_cast<double>(CounterNow() - start);
  return counts * NanosecondsPerCount() / static_cast<double>(times);
}

Cost Summarize(std::vector<double> rounds) {
  std::sort(rounds.begin(), rounds.end());
  const size_t last = rounds.size() - 1;
  return {rounds[last / 2], rounds[last / 4], rounds[last - last / 4]};
}

}  // namespace

std::vector<Cost> Measure(const std::vector<Case>& cases, const Plan& plan) {
  for (const Case& warmed : cases) warmed.run(plan.times);
  std::vector<std::vector<double>> samples(cases.size());
  for (int round = 0; round < plan.rounds; ++round) {
    for (size_t turn = 0; turn < cases.size(); ++turn) {
      const size_t i = (turn + static_cast<size_t>(round)) % cases.size();
      samples[i].push_back(TimeOnce(cases[i], plan.times));
    }
  }
  std::vector<Cost> costs;
  costs.reserve(samples.size());
  for (std::vector<double>& rounds : samples) {
    costs.push_back(Summarize(std::move(rounds)));
  }
  return costs;
}

void PrintTable(const char* title, const std::vector<Case>& cases,
                const std::vector<Cost>& costs) {
  std::printf("\n%s\n%-44s %9s %7s   %s\n", title, "", "median", "ratio",
              "middle half of the rounds");
  for (size_t i = 0; i < cases.size(); ++i) {
    const Cost& cost = costs[i];
    std::printf("%-44s %6.2f ns %7.2f   %.2f to %.2f ns\n", cases[i].name,
                cost.median, cost.median / costs[0].median, cost.lowerQuartile,
                cost.upperQuartile);
  }
}

}  // namespace kova::bench
