// A block of bytes of an exact size, as responses travel in.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace kova {

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
    std::unique_ptr<char[]> fresh(sizeBytes == 0 ? nullptr
                                                 : new char[sizeBytes]);
    m_data = std::move(fresh);
    m_size = sizeBytes;
  }

  // The same for a size that somebody else claims: false where memory runs
  // out, and then keeps the old block. A new block is all zero, so that what
  // nobody writes into it tells nothing of the process. Large blocks come zero
  // from the system (HeapCreate: requests of about 1 MiB and more go to
  // VirtualAlloc); to touch a false claim of gigabytes would cost them.
  [[nodiscard]] bool TryResizeDiscarding(uint64_t sizeBytes) {
    if (sizeBytes == m_size) return true;
    std::unique_ptr<char[]> fresh(
        sizeBytes == 0 ? nullptr : new (std::nothrow) char[sizeBytes]);
    if (sizeBytes != 0 && fresh == nullptr) return false;
    if (sizeBytes < kZeroFromSystemBytes)
      std::fill_n(fresh.get(), sizeBytes, 0);
    m_data = std::move(fresh);
    m_size = sizeBytes;
    return true;
  }

 private:
  static constexpr uint64_t kZeroFromSystemBytes = uint64_t{4} << 20;

  std::unique_ptr<char[]> m_data;
  uint64_t m_size = 0;
};

}  // namespace kova
