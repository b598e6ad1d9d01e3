// Large blocks of zeros, of which a few are kept for whoever needs one next. To
// make 8 MiB of fresh pages, clear them and take them back costs the system ten
// times what writing them does.
#pragma once

#include <cstddef>

namespace kova {

// What is kept at most: four blocks of this size, 64 MiB.
inline constexpr size_t kMostKeptBytes = size_t{16} << 20;
inline constexpr size_t kKeptBlocks = 4;
// What is smaller the heap keeps itself.
inline constexpr size_t kLeastKeptBytes = size_t{1} << 20;

struct ZeroedBlock {
  char* data;
  size_t capacity;  // at least what was asked for
};

// A block whose first `sizeBytes` (not 0) bytes are zero: one that was kept and
// is large enough, or a new one; null where memory runs out. For any thread;
// waits for nobody.
[[nodiscard]] ZeroedBlock TakeZeroedBlock(size_t sizeBytes);

// Keeps the block, or frees it where there is no room or its size is not among
// those above. `data` may be null.
void GiveBlockBack(ZeroedBlock block);

// Frees what is kept. For any thread.
void FreeKeptBlocks();

}  // namespace kova
