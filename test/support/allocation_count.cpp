#include "test/support/allocation_count.h"

#include <malloc.h>

#include <atomic>
#include <cstdint>

namespace kova::test {

namespace {

std::atomic<size_t> g_calls;
std::atomic<size_t> g_bytes;
std::atomic<int64_t> g_held;
std::atomic<int64_t> g_peak;

void* (*g_malloc)(size_t) = nullptr;
void* (*g_calloc)(size_t, size_t) = nullptr;
void* (*g_realloc)(void*, size_t) = nullptr;
void (*g_free)(void*) = nullptr;

int64_t SizeOf(void* block) {
  return block == nullptr ? 0 : static_cast<int64_t>(::_msize(block));
}

void* Took(void* block, size_t bytes) {
  if (block == nullptr) return nullptr;
  ++g_calls;
  g_bytes += bytes;
  const int64_t held = g_held += SizeOf(block);
  int64_t peak = g_peak;
  while (held > peak && !g_peak.compare_exchange_weak(peak, held)) {
  }
  return block;
}

void* CountedMalloc(size_t bytes) { return Took(g_malloc(bytes), bytes); }

void* CountedCalloc(size_t count, size_t size) {
  return Took(g_calloc(count, size), count * size);
}

void* CountedRealloc(void* block, size_t bytes) {
  const int64_t before = SizeOf(block);
  void* const moved = Took(g_realloc(block, bytes), bytes);
  if (moved != nullptr || bytes == 0) g_held -= before;
  return moved;
}

void CountedFree(void* block) {
  g_held -= SizeOf(block);
  g_free(block);
}

}  // namespace

AllocationCount::AllocationCount()
    : m_malloc(nullptr, "malloc", &CountedMalloc),
      m_calloc(nullptr, "calloc", &CountedCalloc),
      m_realloc(nullptr, "realloc", &CountedRealloc),
      m_free(nullptr, "free", &CountedFree) {
  g_malloc = m_malloc.Original();
  g_calloc = m_calloc.Original();
  g_realloc = m_realloc.Original();
  g_free = m_free.Original();
  g_calls = g_bytes = 0;
  g_held = g_peak = 0;
}

size_t AllocationCount::Calls() { return g_calls; }

size_t AllocationCount::Bytes() { return g_bytes; }

size_t AllocationCount::PeakBytes() {
  return static_cast<size_t>(g_peak.load());
}

}  // namespace kova::test
