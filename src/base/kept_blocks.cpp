#include "base/kept_blocks.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>

namespace kova {
namespace {

// A block that is kept begins with its capacity, so that a place is one word: a
// thread that is killed here holds up nobody and loses one block at most.
class Places {
 public:
  ~Places() { Free(); }

  // Null where none is large enough. One that is not makes room for such.
  [[nodiscard]] ZeroedBlock Take(size_t sizeBytes) {
    for (std::atomic<char*>& place : m_places) {
      char* const data = place.exchange(nullptr);
      if (data == nullptr) continue;
      size_t capacity = 0;
      std::memcpy(&capacity, data, sizeof(capacity));
      if (capacity >= sizeBytes) return {data, capacity};
      std::free(data);
    }
    return {};
  }

  // False where all places are taken.
  [[nodiscard]] bool Keep(ZeroedBlock block) {
    std::memcpy(block.data, &block.capacity, sizeof(block.capacity));
    for (std::atomic<char*>& place : m_places) {
      char* none = nullptr;
      if (place.compare_exchange_strong(none, block.data)) return true;
    }
    return false;
  }

  void Free() {
    for (std::atomic<char*>& place : m_places) {
      std::free(place.exchange(nullptr));
    }
  }

 private:
  std::array<std::atomic<char*>, kKeptBlocks> m_places{};
};

constinit Places g_places;

bool IsKept(size_t sizeBytes) {
  return sizeBytes >= kLeastKeptBytes && sizeBytes <= kMostKeptBytes;
}

}  // namespace

ZeroedBlock TakeZeroedBlock(size_t sizeBytes) {
  if (IsKept(sizeBytes)) {
    const ZeroedBlock kept = g_places.Take(sizeBytes);
    if (kept.data != nullptr) {
      std::memset(kept.data, 0, sizeBytes);
      return kept;
    }
  }
  return {static_cast<char*>(std::calloc(sizeBytes, 1)), sizeBytes};
}

void GiveBlockBack(ZeroedBlock block) {
  if (IsKept(block.capacity) && g_places.Keep(block)) return;
  std::free(block.data);
}

void FreeKeptBlocks() { g_places.Free(); }

}  // namespace kova
