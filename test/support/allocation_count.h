// Counts what this program asks of the C runtime's heap.
#pragma once

#include <cstddef>

#include "test/support/import_patch.h"

namespace kova::test {

// From construction to destruction, counts the blocks that the program's code,
// operator new among it, takes from the C runtime and gives back, on every
// thread. At most one exists at a time. Blocks that were there before may be
// given back meanwhile.
class AllocationCount {
 public:
  AllocationCount();

  // Successful calls that took a block, or moved one to another size.
  [[nodiscard]] static size_t Calls();
  // The sizes of what they took, summed up.
  [[nodiscard]] static size_t Bytes();
  // The most that was held at one time beyond what was held at the start. A
  // block that moves is held twice meanwhile.
  [[nodiscard]] static size_t PeakBytes();

 private:
  const ImportPatch<void*(size_t)> m_malloc;
  const ImportPatch<void*(size_t, size_t)> m_calloc;
  const ImportPatch<void*(void*, size_t)> m_realloc;
  const ImportPatch<void(void*)> m_free;
};

// What `run` takes.
struct AllocationCost {
  size_t calls;
  size_t bytes;
  size_t peakBytes;
};

template <typename Run>
AllocationCost CostOf(const Run& run) {
  const AllocationCount count;
  run();
  return {count.Calls(), count.Bytes(), count.PeakBytes()};
}

}  // namespace kova::test
