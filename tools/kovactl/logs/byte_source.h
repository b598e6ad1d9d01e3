// Bytes that are read at any place: of a file, or of memory in tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kova::ctl {

class ByteSource {
 public:
  virtual ~ByteSource() = default;

  [[nodiscard]] virtual uint64_t SizeBytes() const = 0;

  // Fills all of `bytes` from `offset` on. False if the source ends before or
  // cannot be read there; `bytes` is then undefined.
  [[nodiscard]] virtual bool Read(uint64_t offset,
                                  std::span<uint8_t> bytes) const = 0;
};

}  // namespace kova::ctl
