// A file as a source of bytes.
#pragma once

#include <string>

#include "base/handles.h"
#include "logs/byte_source.h"

namespace kova::ctl {

// Holds the file open without keeping others from writing, renaming or deleting
// it: a dump may still be growing. Used by one thread.
class FileSource : public ByteSource {
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
