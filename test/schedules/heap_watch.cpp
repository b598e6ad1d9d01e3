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

void HeapWatch::Free(void* block) {
  if (block == nullptr) return;
  const auto found = m_blocks.find(block);
  if (found == m_blocks.end()) {
    const bool twice = std::ranges::any_of(
        m_freed, [block](const Freed& freed) { return freed.block == block; });
    if (twice) {
      m_complain("a block of memory is freed twice");
    } else {
      std::free(block);  // from before the library was watched
    }
    return;
  }
  const size_t bytes = std::min(found->second, kMostOverwritten);
  std::memset(block, kFreedByte, bytes);
  m_freed.push_back({block, bytes});
  m_blocks.erase(found);
}

void* HeapWatch::AllocateAgain(void* block, size_t bytes) {
  if (block == nullptr) return Allocate(bytes);
  const auto found = m_blocks.find(block);
  if (found == m_blocks.end()) return std::realloc(block, bytes);
  void* const larger = Allocate(bytes);
  if (larger == nullptr) return nullptr;
  std::memcpy(larger, block, std::min(bytes, m_blocks[block]));
  Free(block);
  return larger;
}

void HeapWatch::Sift() {
  for (const Freed& freed : m_freed) {
    const auto* const bytes = static_cast<const unsigned char*>(freed.block);
    if (!std::all_of(bytes, bytes + freed.bytes,
                     [](unsigned char byte) { return byte == kFreedByte; })) {
      m_complain("a block of memory is written to after it was freed");
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

namespace {

HeapWatch& Heap() { return TheMachine().heap; }

void* __cdecl Allocate(size_t bytes) { return Heap().Allocate(bytes); }

void* __cdecl AllocateZeroed(size_t count, size_t each) {
  void* const block = Heap().Allocate(count * each);
  if (block != nullptr) std::memset(block, 0, count * each);
  return block;
}

void* __cdecl AllocateAgain(void* block, size_t bytes) {
  return Heap().AllocateAgain(block, bytes);
}

void __cdecl Free(void* block) { Heap().Free(block); }

char* __cdecl Duplicate(const char* text) {
  const size_t bytes = std::strlen(text) + 1;
  return static_cast<char*>(std::memcpy(Heap().Allocate(bytes), text, bytes));
}

}  // namespace

std::span<const Thunk> HeapThunks() {
  static const Thunk thunks[] = {
      MakeThunk("malloc", &Allocate),
      MakeThunk("calloc", &AllocateZeroed),
      MakeThunk("realloc", &AllocateAgain),
      MakeThunk("free", &Free),
      MakeThunk("_strdup", &Duplicate),
  };
  return thunks;
}

}  // namespace kova::test
