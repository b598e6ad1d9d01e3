// What this process holds and has used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kova::bench {

struct Usage {
  uint64_t privateBytes = 0;     // private memory that is committed
  uint64_t workingSetBytes = 0;  // memory that is resident
  size_t threads = 0;
  size_t handles = 0;
  uint64_t cpuMs = 0;  // of all threads so far, in the kernel and outside
};

[[nodiscard]] Usage ReadUsage();

// One line of JSON, with the number of connections beside the figures.
[[nodiscard]] std::string ToJson(const Usage& usage, size_t connections);

}  // namespace kova::bench
