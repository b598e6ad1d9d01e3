// For tests: an empty folder that vanishes with what is in it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/windows_api.h"

namespace kova::ctl::test {

class ScratchFolder {
 public:
  ScratchFolder()
      : m_path(std::filesystem::temp_directory_path() /
               (L"kovactl-logs-" + std::to_wstring(::GetCurrentProcessId()))) {
    std::filesystem::create_directories(m_path);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  [[nodiscard]] std::wstring Path() const { return m_path.native(); }

  // Writes a file; its path.
  [[nodiscard]] std::wstring Add(const std::wstring& name,
                                 const std::vector<uint8_t>& bytes) const {
    std::ofstream file(m_path / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return (m_path / name).native();
  }

 private:
  const std::filesystem::path m_path;
};

}  // namespace kova::ctl::test
