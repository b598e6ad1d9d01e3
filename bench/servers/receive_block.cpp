#include "bench/servers/receive_block.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/windows_api.h"

namespace kova::bench {
namespace {

constexpr size_t kCommitAheadBytes = size_t{1} << 20;

}  // namespace

bool ReceiveBlock::Append(const char* bytes, size_t count) {
  const size_t needed = m_size + count;
  const bool hasRoom =
      m_growth == Growth::kExact ? GrowExact(needed) : GrowReserved(needed);
  if (!hasRoom) return false;
  std::memcpy(m_data + m_size, bytes, count);
  m_size = needed;
  return true;
}

bool ReceiveBlock::GrowExact(size_t needed) {
  void* const data = std::realloc(m_data, needed);
  if (data == nullptr) return false;
  m_data = static_cast<char*>(data);
  return true;
}

bool ReceiveBlock::GrowReserved(size_t needed) {
  if (needed > m_mostBytes) return false;
  if (m_data == nullptr) {
    m_data = static_cast<char*>(
        ::VirtualAlloc(nullptr, m_mostBytes, MEM_RESERVE, PAGE_READWRITE));
    if (m_data == nullptr) return false;
  }
  if (needed <= m_committed) return true;
  const size_t target = std::min(m_mostBytes, needed + kCommitAheadBytes);
  if (::VirtualAlloc(m_data + m_committed, target - m_committed, MEM_COMMIT,
                     PAGE_READWRITE) == nullptr) {
    return false;
  }
  m_committed = target;
  return true;
}

void ReceiveBlock::Clear() {
  if (m_growth == Growth::kExact) {
    std::free(m_data);
  } else if (m_data != nullptr) {
    ::VirtualFree(m_data, 0, MEM_RELEASE);
  }
  m_data = nullptr;
  m_size = 0;
  m_committed = 0;
}

}  // namespace kova::bench
