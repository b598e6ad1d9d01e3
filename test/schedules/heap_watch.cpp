#include "test/schedules/heap_watch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "test/schedules/machine.h"

namespace kova::test {
namespace {

constexpr unsigned char kFreedByte = 0xDD;
// The beginning of a large block stands for the whole.
constexpr size_t kMostOverwritten = 1024;

}  // namespace

void* HeapWatch::Allocate(size_t bytes) {
  void* const block = std::malloc(bytes);
  if (block != nullptr) m_blocks[block] = bytes;
  return block;
}

void* HeapWatch::AllocateZeroed(size_t count, size_t each) {
  void* const block = Allocate(count * each);
  return block == nullptr ? nullptr : std::memset(block, 0, count * each);
}

void* HeapWatch::AllocateAgain(void* block, size_t bytes) {
  if (block == nullptr) return Allocate(bytes);
  const auto found = m_blocks.find(block);
  if (found == m_blocks.end()) return std::realloc(block, bytes);
  const size_t kept = std::min(bytes, found->second);
  void* const larger = Allocate(bytes);
  if (larger == nullptr) return nullptr;
  std::memcpy(larger, block, kept);
  Free(block);
  return larger;
}

void HeapWatch::Free(void* block) {
  if (block == nullptr) return;
  const auto found = m_blocks.find(block);
  if (found != m_blocks.end()) {
    const size_t bytes = std::min(found->second, kMostOverwritten);
    std::memset(block, kFreedByte, bytes);
    m_freed.push_back({block, bytes});
    m_blocks.erase(found);
  } else if (std::ranges::find(m_freed, block, &Freed::block) !=
             m_freed.end()) {
    TheMachine().Complain("a block of memory is freed twice");
  } else {
    std::free(block);  // from before the library was watched
  }
}

char* HeapWatch::Duplicate(const char* text) {
  const size_t bytes = std::strlen(text) + 1;
  return static_cast<char*>(std::memcpy(Allocate(bytes), text, bytes));
}

void HeapWatch::Sift() {
  for (const Freed& freed : m_freed) {
    const auto* const bytes = static_cast<const unsigned char*>(freed.block);
    if (std::count(bytes, bytes + freed.bytes, kFreedByte) !=
        static_cast<ptrdiff_t>(freed.bytes)) {
      TheMachine().Complain(
          "a block of memory is written to after it was "
          "freed");
    }
    std::free(freed.block);
  }
  m_freed.clear();
}

void HeapWatch::Reset() {
  for (const Freed& freed : m_freed) std::free(freed.block);
  m_freed.clear();
  m_blocks.clear();
}

std::span<const Thunk> HeapThunks() {
  static const Thunk thunks[] = {
      Silently<"malloc", &HeapWatch::Allocate>(),
      Silently<"calloc", &HeapWatch::AllocateZeroed>(),
      Silently<"realloc", &HeapWatch::AllocateAgain>(),
      Silently<"free", &HeapWatch::Free>(),
      Silently<"_strdup", &HeapWatch::Duplicate>(),
  };
  return thunks;
}

}  // namespace kova::test
