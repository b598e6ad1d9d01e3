// The C runtime's heap, counted and made to refuse.
#pragma once

#include <cstddef>
#include <cstdint>

#include "test/support/import_patch.h"

namespace kova::test {

// From construction to destruction, watches what `module` (null: this program)
// takes from the C runtime's heap and gives back, operator new and delete among
// it, on every thread. At most one exists at a time. Blocks that were there
// before may be given back meanwhile.
class WatchedHeap {
 public:
  explicit WatchedHeap(HMODULE module = nullptr);

  // From now on, refuses the `nth` call for a block alone; 0: none.
  static void RefuseNth(size_t nth);
  // From now on, refuses all blocks of more bytes than that.
  static void RefuseAbove(size_t bytes);
  // The size of the last block that was refused; 0 if none was.
  [[nodiscard]] static size_t RefusedBytes();

  // Successful calls that took a block, or moved one to another size; those
  // among them that asked for zeros.
  [[nodiscard]] static size_t Calls();
  [[nodiscard]] static size_t ZeroedCalls();
  // The sizes of what they took, summed up.
  [[nodiscard]] static size_t Bytes();
  // The most that was held at one time beyond what was held at the start. A
  // block that moves is held twice meanwhile.
  [[nodiscard]] static size_t PeakBytes();
  // Blocks taken less blocks given back.
  [[nodiscard]] static int64_t LiveBlocks();

 private:
  // Before any is replaced: other threads call them meanwhile.
  static bool KeepOriginals(HMODULE module);

  const bool m_areKept;
  const ImportPatch<void*(size_t)> m_malloc;
  const ImportPatch<void*(size_t, size_t)> m_calloc;
  const ImportPatch<void*(void*, size_t)> m_realloc;
  const ImportPatch<void(void*)> m_free;
};

// What `run` takes.
struct HeapCost {
  size_t calls;
  size_t bytes;
  size_t peakBytes;
};

template <typename Run>
HeapCost CostOf(const Run& run) {
  const WatchedHeap heap;
  run();
  return {heap.Calls(), heap.Bytes(), heap.PeakBytes()};
}

}  // namespace kova::test
