// What a request is gathered in.
#pragma once

#include <cstddef>

namespace kova::bench {

// kReserved: address space for everything is reserved at once and memory is
// committed ahead of need, so that nothing received ever moves. kExact: the
// block is exactly as long as what it holds and is reallocated for each piece.
enum class Growth { kReserved, kExact };

// A block that grows piece by piece up to a length that is known before. Used
// on one thread.
class ReceiveBlock {
 public:
  ReceiveBlock(Growth growth, size_t mostBytes)
      : m_growth(growth), m_mostBytes(mostBytes) {}
  ~ReceiveBlock() { Clear(); }
  ReceiveBlock(const ReceiveBlock&) = delete;
  ReceiveBlock& operator=(const ReceiveBlock&) = delete;

  // False when memory runs out, or when more than the most would be held.
  [[nodiscard]] bool Append(const char* bytes, size_t count);
  [[nodiscard]] size_t Size() const { return m_size; }
  // Gives all memory back.
  void Clear();

 private:
  [[nodiscard]] bool GrowReserved(size_t needed);
  [[nodiscard]] bool GrowExact(size_t needed);

  const Growth m_growth;
  const size_t m_mostBytes;
  char* m_data = nullptr;
  size_t m_size = 0;
  size_t m_committed = 0;
};

}  // namespace kova::bench
