#include "test/soak/soak_report.h"

#include <algorithm>
#include <bit>
#include <cstdio>

namespace kova::test {
namespace {

constexpr uint64_t kTextBytes = 32;
constexpr uint64_t kPlacesBytes = 8;

// Cast to double where it is shown only.
double MiB(uint64_t bytes) {
  return static_cast<double>(bytes) / (uint64_t{1} << 20);
}

using Rows = std::vector<SoakRow>;
// What is looked at, and by how much it may grow.
struct Measure {
  const char* what;
  int64_t slack;
  uint64_t (*of)(const SoakRow& row);
};
const Measure kMeasures[] = {
    {"KiB of private memory", 4 * 1024,
     [](const SoakRow& row) {
       return (row.privateBytes - AddressListBytes(row.peers)) / 1024;
     }},
    // The system's business, too: wider.
    {"KiB of working set", 12 * 1024,
     [](const SoakRow& row) {
       return (row.workingSetBytes - AddressListBytes(row.peers)) / 1024;
     }},
    {"handles", 4, [](const SoakRow& row) -> uint64_t { return row.handles; }},
    {"threads", 1, [](const SoakRow& row) -> uint64_t { return row.threads; }}};

int64_t Median(const Rows& rows, size_t from, size_t to,
               const Measure& measure) {
  std::vector<uint64_t> values;
  for (size_t i = from; i < to; ++i) values.push_back(measure.of(rows[i]));
  std::ranges::sort(values);
  return static_cast<int64_t>(values[values.size() / 2]);
}

}  // namespace

uint64_t AddressListBytes(size_t peers) {
  if (peers == 0) return 0;
  return std::bit_ceil(peers) * (kTextBytes + kPlacesBytes);
}

uint32_t Percentile(std::vector<uint32_t> values, uint32_t percent) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  return values[(values.size() - 1) * percent / 100];
}

SoakVerdict Judge(const Rows& rows) {
  SoakVerdict verdict;
  if (rows.size() < 3) return verdict;
  const size_t first = std::max<size_t>(1, rows.size() / 3);
  const size_t middle = first + (rows.size() - first) / 2;
  for (const Measure& measure : kMeasures) {
    const int64_t growth = Median(rows, middle, rows.size(), measure) -
                           Median(rows, first, middle, measure);
    verdict.growths.push_back({measure.what, growth, measure.slack});
  }
  verdict.wrongAnswers = rows.back().wrongAnswers;
  verdict.isFlat = std::ranges::all_of(
      verdict.growths,
      [](const SoakGrowth& each) { return each.growth <= each.slack; });
  return verdict;
}

std::string SoakHeading() {
  return "  requests  wrong    req/s  private   working  handles threads "
         "median     99 %\n"
         "                                MiB       MiB                "
         "      ms       ms";
}

std::string SoakLine(const SoakRow& row) {
  char line[160] = {};
  std::snprintf(
      line, sizeof(line), "%10llu %6llu %8.0f %8.2f %9.2f %8u %7u %6.2f %8.2f",
      static_cast<unsigned long long>(row.requests),
      static_cast<unsigned long long>(row.wrongAnswers), row.requestsPerSecond,
      MiB(row.privateBytes), MiB(row.workingSetBytes),
      static_cast<unsigned>(row.handles), static_cast<unsigned>(row.threads),
      row.medianUs / 1000.0, row.percentile99Us / 1000.0);
  return line;
}

std::string VerdictText(const SoakVerdict& verdict) {
  std::string text =
      "From the first half to the second, without the list of client "
      "addresses:\n";
  for (const auto& [what, growth, slack] : verdict.growths) {
    text += "  " + std::to_string(growth) + " " + what + " (slack " +
            std::to_string(slack) + ")\n";
  }
  text += "Wrong or missing answers: " + std::to_string(verdict.wrongAnswers) +
          "\nVerdict: ";
  if (!verdict.isFlat) return text + "NOT FLAT";
  return text +
         (verdict.wrongAnswers == 0 ? "flat" : "flat, but answers were wrong");
}

}  // namespace kova::test
