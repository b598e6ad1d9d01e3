// Files that are read at any place; tests read from memory in their stead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/handles.h"

namespace kova::ctl {

class RandomAccessFile {
 public:
  virtual ~RandomAccessFile() = default;

  [[nodiscard]] virtual uint64_t SizeBytes() const = 0;

  // Fills all of `bytes` from `offset` on. False if the file ends before or
  // cannot be read there; `bytes` is then undefined.
  [[nodiscard]] virtual bool Read(uint64_t offset,
                                  std::span<uint8_t> bytes) const = 0;

  // The structure that lies at `offset`; empty if the file does not hold all
  // of it.
  template <typename T>
  [[nodiscard]] std::optional<T> At(uint64_t offset) const {
    T value{};
    if (!Read(offset, {reinterpret_cast<uint8_t*>(&value), sizeof(value)})) {
      return std::nullopt;
    }
    return value;
  }
};

// Holds the file open without keeping others from writing, renaming or deleting
// it: a dump may still be growing. Used by one thread.
class DiskFile : public RandomAccessFile {
 public:
  // Opens `path` for reading. Returns the error code; to be called once,
  // before anything else.
  [[nodiscard]] DWORD Open(const std::wstring& path);

  [[nodiscard]] uint64_t SizeBytes() const override { return m_sizeBytes; }
  [[nodiscard]] bool Read(uint64_t offset,
                          std::span<uint8_t> bytes) const override;

 private:
  UniqueFile m_file;
  uint64_t m_sizeBytes = 0;
};

}  // namespace kova::ctl
