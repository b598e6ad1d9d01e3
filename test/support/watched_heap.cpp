#include "test/support/watched_heap.h"

#include <malloc.h>

#include <atomic>

namespace kova::test {

namespace {

std::atomic<size_t> g_calls;
std::atomic<size_t> g_zeroedCalls;
std::atomic<size_t> g_bytes;
std::atomic<int64_t> g_heldBytes;
std::atomic<int64_t> g_peakBytes;
std::atomic<int64_t> g_liveBlocks;
std::atomic<int64_t> g_callsToRefusal;  // 0 or less: there is none to come
std::atomic<size_t> g_mostBytes;
std::atomic<size_t> g_refusedBytes;

void* (*g_malloc)(size_t) = nullptr;
void* (*g_calloc)(size_t, size_t) = nullptr;
void* (*g_realloc)(void*, size_t) = nullptr;
void (*g_free)(void*) = nullptr;

bool IsRefused(size_t bytes) {
  const bool isNth = --g_callsToRefusal == 0;
  if (!isNth && bytes <= g_mostBytes) return false;
  g_refusedBytes = bytes;
  return true;
}

int64_t SizeOf(void* block) {
  return block == nullptr ? 0 : static_cast<int64_t>(::_msize(block));
}

void* Took(void* block, size_t bytes) {
  if (block == nullptr) return nullptr;
  ++g_calls;
  ++g_liveBlocks;
  g_bytes += bytes;
  const int64_t held = g_heldBytes += SizeOf(block);
  int64_t peak = g_peakBytes;
  while (held > peak && !g_peakBytes.compare_exchange_weak(peak, held)) {
  }
  return block;
}

void Gave(void* block, int64_t bytes) {
  if (block == nullptr) return;
  --g_liveBlocks;
  g_heldBytes -= bytes;
}

void* Malloc(size_t bytes) {
  return IsRefused(bytes) ? nullptr : Took(g_malloc(bytes), bytes);
}

void* Calloc(size_t count, size_t size) {
  const size_t bytes = count * size;
  if (IsRefused(bytes)) return nullptr;
  ++g_zeroedCalls;
  return Took(g_calloc(count, size), bytes);
}

void* Realloc(void* block, size_t bytes) {
  if (IsRefused(bytes)) return nullptr;
  const int64_t before = SizeOf(block);
  void* const moved = Took(g_realloc(block, bytes), bytes);
  if (moved != nullptr || bytes == 0) Gave(block, before);
  return moved;
}

void Free(void* block) {
  Gave(block, SizeOf(block));
  g_free(block);
}

template <typename Function>
void Keep(Function*& original, HMODULE module, const char* name) {
  original =
      reinterpret_cast<Function*>(ReadImportSlot(FindImportSlot(module, name)));
}

}  // namespace

bool WatchedHeap::KeepOriginals(HMODULE module) {
  Keep(g_malloc, module, "malloc");
  Keep(g_calloc, module, "calloc");
  Keep(g_realloc, module, "realloc");
  Keep(g_free, module, "free");
  g_calls = g_zeroedCalls = g_bytes = 0;
  g_heldBytes = g_peakBytes = g_liveBlocks = 0;
  g_callsToRefusal = 0;
  g_refusedBytes = 0;
  g_mostBytes = SIZE_MAX;
  return true;
}

WatchedHeap::WatchedHeap(HMODULE module)
    : m_areKept(KeepOriginals(module)),
      m_malloc(module, "malloc", &Malloc),
      m_calloc(module, "calloc", &Calloc),
      m_realloc(module, "realloc", &Realloc),
      m_free(module, "free", &Free) {}

void WatchedHeap::RefuseNth(size_t nth) {
  g_callsToRefusal = static_cast<int64_t>(nth);
}
void WatchedHeap::RefuseAbove(size_t bytes) { g_mostBytes = bytes; }
size_t WatchedHeap::RefusedBytes() { return g_refusedBytes; }
size_t WatchedHeap::Calls() { return g_calls; }
size_t WatchedHeap::ZeroedCalls() { return g_zeroedCalls; }
size_t WatchedHeap::Bytes() { return g_bytes; }
size_t WatchedHeap::PeakBytes() { return static_cast<size_t>(g_peakBytes); }
int64_t WatchedHeap::LiveBlocks() { return g_liveBlocks; }

}  // namespace kova::test
