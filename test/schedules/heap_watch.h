// Keeps account of the library's blocks of memory.
#pragma once

#include <cstddef>
#include <span>
#include <unordered_map>
#include <vector>

#include "test/schedules/thunk.h"

namespace kova::test {

// A block that the library frees is overwritten and kept until Sift(), so that
// whoever uses it afterwards is seen: a write by Sift(), a pointer read from it
// by the exception that its use raises.
class HeapWatch {
 public:
  HeapWatch() = default;
  ~HeapWatch() { Reset(); }
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;

  // The library's calls, see HeapThunks().
  void* Allocate(size_t bytes);
  void* AllocateZeroed(size_t count, size_t each);
  void* AllocateAgain(void* block, size_t bytes);
  void Free(void* block);
  char* Duplicate(const char* text);

  [[nodiscard]] size_t Blocks() const { return m_blocks.size(); }
  // Complains of writes to freed blocks, and lets these go.
  void Sift();
  // Forgets all blocks; those that are not freed are lost.
  void Reset();

 private:
  struct Freed {
    void* block;
    size_t bytes;
  };

  std::unordered_map<void*, size_t> m_blocks;
  std::vector<Freed> m_freed;
};

[[nodiscard]] std::span<const Thunk> HeapThunks();

}  // namespace kova::test
