// What a soak measured, as a table and a verdict.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kova::test {

// The process after a number of requests, at rest: no client is connected.
struct SoakRow {
  uint64_t requests = 0;      // since the beginning
  uint64_t wrongAnswers = 0;  // since the beginning
  double requestsPerSecond = 0;
  uint64_t privateBytes = 0;
  uint64_t workingSetBytes = 0;
  size_t handles = 0;
  size_t threads = 0;
  size_t peers = 0;  // distinct client addresses since the beginning
  uint32_t medianUs = 0;
  uint32_t percentile99Us = 0;
};

// By how much the second half may lie above the first one.
struct SoakSlack {
  uint64_t privateBytes = uint64_t{4} << 20;
  // The system's business, too: wider.
  uint64_t workingSetBytes = uint64_t{12} << 20;
  size_t handles = 4;
  size_t threads = 1;
};

// The medians of the rows of each half. The first third of the rows is left
// out: it fills the list of client addresses and the heap's caches, which
// widen with the number of threads there have been, to a limit.
struct SoakVerdict {
  int64_t privateGrowth = 0;
  int64_t workingSetGrowth = 0;
  // Of both, what the server's list of client addresses takes, by design one
  // entry for each distinct address.
  int64_t addressListGrowth = 0;
  int64_t handleGrowth = 0;
  int64_t threadGrowth = 0;
  uint64_t wrongAnswers = 0;
  bool isFlat = false;
};

// The memory that the server's list of client addresses takes for `peers`
// addresses, computed from its layout: a text of 32 bytes and two places of an
// index each, in blocks that double.
[[nodiscard]] uint64_t AddressListBytes(size_t peers);

// The value that `percent` of `values` do not exceed; 0 if there is none.
[[nodiscard]] uint32_t Percentile(std::vector<uint32_t> values,
                                  uint32_t percent);

// At least three rows are needed; with fewer nothing is flat.
[[nodiscard]] SoakVerdict Judge(const std::vector<SoakRow>& rows,
                                const SoakSlack& slack = {});

// Lines of at most 80 columns, without line ends.
[[nodiscard]] std::string SoakHeading();
[[nodiscard]] std::string SoakLine(const SoakRow& row);
[[nodiscard]] std::string VerdictText(const SoakVerdict& verdict,
                                      const SoakSlack& slack = {});

}  // namespace kova::test
