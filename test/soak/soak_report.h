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

// By how much the median of the rows of the second half lies above that of the
// first, and by how much it may.
struct SoakGrowth {
  const char* what;
  int64_t growth;
  int64_t slack;
};

// The first third of the rows is left out: it fills the list of client
// addresses and the heap's caches, which widen with the number of threads there
// have been, to a limit. What the server's list of client addresses takes, by
// design one entry for each distinct address, is no growth of the memory.
struct SoakVerdict {
  std::vector<SoakGrowth> growths;
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
[[nodiscard]] SoakVerdict Judge(const std::vector<SoakRow>& rows);

// Lines of at most 80 columns, without line ends.
[[nodiscard]] std::string SoakHeading();
[[nodiscard]] std::string SoakLine(const SoakRow& row);
[[nodiscard]] std::string VerdictText(const SoakVerdict& verdict);

}  // namespace kova::test
