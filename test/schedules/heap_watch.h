// Keeps account of the library's blocks of memory.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "test/schedules/thunk.h"

namespace kova::test {

// A block that the library frees is overwritten and kept until Sift(), so that
// whoever uses it afterwards is seen: a write by Sift(), a pointer read from it
// by the exception that its use raises.
class HeapWatch {
 public:
  using Complain = std::function<void(const std::string&)>;
  explicit HeapWatch(Complain complain) : m_complain(std::move(complain)) {}
  ~HeapWatch() { Reset(); }
  HeapWatch(const HeapWatch&) = delete;
  HeapWatch& operator=(const HeapWatch&) = delete;

  void* Allocate(size_t bytes);
  void* AllocateAgain(void* block, size_t bytes);
  void Free(void* block);

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

  const Complain m_complain;
  std::unordered_map<void*, size_t> m_blocks;
  std::vector<Freed> m_freed;
};

[[nodiscard]] std::span<const Thunk> HeapThunks();

}  // namespace kova::test
