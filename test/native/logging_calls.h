// What the stand-in's event log, file and debugger were given, and its clock.
#pragma once

#include <atomic>
#include <cstdint>

namespace kova::test {

struct LoggingCalls {
  // The registry's one mask. Reading it is the only way to it.
  std::atomic<uint32_t> mask{0xFFFFFFFF};
  // Added to by whoever asks for the time, so that refreshes are due often.
  std::atomic<uint64_t> nowMs{1000000};
  std::atomic<uint64_t> stepMs{100};

  std::atomic<uint32_t> events{0};
  std::atomic<uint32_t> files{0};
  std::atomic<uint32_t> debuggerLines{0};
};

LoggingCalls& TheLoggingCalls();

}  // namespace kova::test
