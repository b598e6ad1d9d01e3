#include "common/random_access_file.h"

namespace kova::ctl {

DWORD DiskFile::Open(const std::wstring& path) {
  m_file.Reset(
      ::CreateFileW(path.c_str(), GENERIC_READ,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!m_file.IsValid()) return ::GetLastError();
  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(m_file.Get(), &size)) return ::GetLastError();
  m_sizeBytes = static_cast<uint64_t>(size.QuadPart);
  return ERROR_SUCCESS;
}

bool DiskFile::Read(uint64_t offset, std::span<uint8_t> bytes) const {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  DWORD count = 0;
  return ::ReadFile(m_file.Get(), bytes.data(),
                    static_cast<DWORD>(bytes.size()), &count, &place) &&
         count == bytes.size();
}

}  // namespace kova::ctl
