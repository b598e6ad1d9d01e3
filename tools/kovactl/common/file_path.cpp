#include "common/file_path.h"

#include "base/windows_api.h"

namespace kova::ctl {

std::wstring ProgramFolder() {
  wchar_t program[MAX_PATH * 4] = {};
  ::GetModuleFileNameW(nullptr, program,
                       static_cast<DWORD>(std::size(program)));
  const std::wstring path = program;
  return path.substr(0, path.find_last_of(L'\\'));
}

std::wstring FullPath(const std::wstring& path) {
  wchar_t full[MAX_PATH * 4] = {};
  const DWORD length = ::GetFullPathNameW(
      path.c_str(), static_cast<DWORD>(std::size(full)), full, nullptr);
  return length == 0 || length >= std::size(full) ? path : full;
}

bool FileExists(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES &&
         (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool FolderExists(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES &&
         (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::wstring FileName(const std::wstring& path) {
  return path.substr(path.find_last_of(L"\\/") + 1);
}

}  // namespace kova::ctl
