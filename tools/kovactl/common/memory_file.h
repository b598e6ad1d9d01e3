// For tests: a file that lies in memory.
#pragma once

#include <cstring>
#include <utility>
#include <vector>

#include "common/random_access_file.h"

namespace kova::ctl::test {

class MemoryFile : public RandomAccessFile {
 public:
  explicit MemoryFile(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}

  [[nodiscard]] uint64_t SizeBytes() const override { return m_bytes.size(); }
  [[nodiscard]] bool Read(uint64_t offset,
                          std::span<uint8_t> bytes) const override {
    if (offset > m_bytes.size() || bytes.size() > m_bytes.size() - offset) {
      return false;
    }
    if (!bytes.empty()) {
      std::memcpy(bytes.data(), m_bytes.data() + offset, bytes.size());
    }
    return true;
  }

 private:
  std::vector<uint8_t> m_bytes;
};

}  // namespace kova::ctl::test
