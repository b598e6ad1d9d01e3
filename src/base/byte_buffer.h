// A block of bytes of an exact size, as responses travel in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

#include "base/kept_blocks.h"

namespace kova {

// Frees a block in the way it was taken.
struct ByteDeleter {
  size_t zeroedCapacity = 0;  // of one from TakeZeroedBlock(), else 0
  void operator()(char* block) const {
    if (zeroedCapacity != 0) {
      GiveBlockBack({block, zeroedCapacity});
    } else {
      delete[] block;
    }
  }
};

// Owns Size() bytes; null and 0 when empty. Moves, does not copy. Not safe for
// use by two threads at once.
class ByteBuffer {
 public:
  [[nodiscard]] char* Data() { return m_data.get(); }
  [[nodiscard]] const char* Data() const { return m_data.get(); }
  [[nodiscard]] uint64_t Size() const { return m_size; }

  // Makes the block exactly `sizeBytes` long. Its contents are unspecified
  // afterwards: whoever resizes fills the block. A block that has the size
  // already is kept. Throws std::bad_alloc, and then keeps the old block.
  void ResizeDiscarding(uint64_t sizeBytes) {
    if (sizeBytes == m_size) return;
    m_data = Block(sizeBytes == 0 ? nullptr : new char[sizeBytes]);
    m_size = sizeBytes;
  }

  // The same for a size that somebody else claims: false where memory runs
  // out, and then keeps the old block. The block is all zero, so that what
  // nobody writes into it tells nothing of the process or of an earlier
  // answer. To touch a false claim of gigabytes would cost them: blocks of more
  // than kMostKeptBytes are taken as they come from the system.
  [[nodiscard]] bool TryResizeDiscarding(uint64_t sizeBytes) {
    if (sizeBytes == m_size && sizeBytes <= kMostKeptBytes) {
      if (sizeBytes != 0) std::memset(m_data.get(), 0, sizeBytes);
      return true;
    }
    Block fresh;
    if (sizeBytes != 0) {
      const ZeroedBlock taken = TakeZeroedBlock(sizeBytes);
      if (taken.data == nullptr) return false;
      fresh = Block(taken.data, ByteDeleter{taken.capacity});
    }
    m_data = std::move(fresh);
    m_size = sizeBytes;
    return true;
  }

 private:
  using Block = std::unique_ptr<char[], ByteDeleter>;

  Block m_data;
  uint64_t m_size = 0;
};

}  // namespace kova
