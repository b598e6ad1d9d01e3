#include "test/soak/soak_report.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <functional>

namespace kova::test {
namespace {

constexpr uint64_t kTextBytes = 32;
constexpr uint64_t kPlacesBytes = 8;

// Cast to double where it is shown only.
double MiB(uint64_t bytes) {
  return static_cast<double>(bytes) / (uint64_t{1} << 20);
}

using Rows = std::vector<SoakRow>;
using Measure = std::function<uint64_t(const SoakRow&)>;

int64_t Median(const Rows& rows, size_t from, size_t to,
               const Measure& measure) {
  std::vector<uint64_t> values;
  for (size_t i = from; i < to; ++i) values.push_back(measure(rows[i]));
  std::ranges::sort(values);
  return static_cast<int64_t>(values[values.size() / 2]);
}

int64_t Growth(const Rows& rows, const Measure& measure) {
  const size_t first = std::max<size_t>(1, rows.size() / 3);
  const size_t middle = first + (rows.size() - first) / 2;
  return Median(rows, middle, rows.size(), measure) -
         Median(rows, first, middle, measure);
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

SoakVerdict Judge(const Rows& rows, const SoakSlack& slack) {
  SoakVerdict verdict;
  if (rows.size() < 3) return verdict;
  verdict.privateGrowth =
      Growth(rows, [](const SoakRow& row) { return row.privateBytes; });
  verdict.workingSetGrowth =
      Growth(rows, [](const SoakRow& row) { return row.workingSetBytes; });
  verdict.addressListGrowth = Growth(
      rows, [](const SoakRow& row) { return AddressListBytes(row.peers); });
  verdict.handleGrowth =
      Growth(rows, [](const SoakRow& row) { return row.handles; });
  verdict.threadGrowth =
      Growth(rows, [](const SoakRow& row) { return row.threads; });
  verdict.wrongAnswers = rows.back().wrongAnswers;
  verdict.isFlat =
      verdict.privateGrowth - verdict.addressListGrowth <=
          static_cast<int64_t>(slack.privateBytes) &&
      verdict.workingSetGrowth - verdict.addressListGrowth <=
          static_cast<int64_t>(slack.workingSetBytes) &&
      verdict.handleGrowth <= static_cast<int64_t>(slack.handles) &&
      verdict.threadGrowth <= static_cast<int64_t>(slack.threads);
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

std::string VerdictText(const SoakVerdict& verdict, const SoakSlack& slack) {
  char text[640] = {};
  std::snprintf(
      text, sizeof(text),
      "From the first half to the second:\n"
      "  private bytes %+lld KiB (slack %llu KiB)\n"
      "  working set   %+lld KiB (slack %llu KiB)\n"
      "  of both the list of client addresses has %+lld KiB, by design\n"
      "  handles       %+lld (slack %u)\n"
      "  threads       %+lld (slack %u)\n"
      "Wrong or missing answers: %llu\n"
      "Verdict: %s",
      static_cast<long long>(verdict.privateGrowth / 1024),
      static_cast<unsigned long long>(slack.privateBytes / 1024),
      static_cast<long long>(verdict.workingSetGrowth / 1024),
      static_cast<unsigned long long>(slack.workingSetBytes / 1024),
      static_cast<long long>(verdict.addressListGrowth / 1024),
      static_cast<long long>(verdict.handleGrowth),
      static_cast<unsigned>(slack.handles),
      static_cast<long long>(verdict.threadGrowth),
      static_cast<unsigned>(slack.threads),
      static_cast<unsigned long long>(verdict.wrongAnswers),
      !verdict.isFlat             ? "NOT FLAT"
      : verdict.wrongAnswers != 0 ? "flat, but answers were wrong"
                                  : "flat");
  return text;
}

}  // namespace kova::test
