#include "crash/common_folders.h"

#include <filesystem>

#include "base/handles.h"

namespace {

// CSIDL_COMMON_APPDATA | CSIDL_FLAG_CREATE
constexpr int kCommonAppDataFolder = 0x8023;

using GetFolderPath = HRESULT(WINAPI*)(HWND owner, int folder, HANDLE token,
                                       DWORD flags, LPWSTR path);

GetFolderPath FindGetFolderPath(HMODULE shell) {
  return reinterpret_cast<GetFolderPath>(
      reinterpret_cast<void*>(::GetProcAddress(shell, "SHGetFolderPathW")));
}

bool IsExistingFolder(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  return ::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) &&
         (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// Whether the path, put behind any folder, ends and passes nowhere above it.
bool StaysBelow(const std::filesystem::path& relative) {
  if (relative.has_root_path()) return false;
  int depth = 0;
  for (const std::filesystem::path& element : relative) {
    if (element == L"..") {
      if (--depth < 0) return false;
    } else if (element != L".") {
      ++depth;
    }
  }
  return true;
}

}  // namespace

std::wstring GetCommonAppDataFolder() {
  const kova::UniqueModule shell(::LoadLibraryW(L"Shell32.dll"));
  if (!shell.IsValid()) return {};
  const GetFolderPath getFolderPath = FindGetFolderPath(shell.Get());
  wchar_t path[MAX_PATH] = {};
  if (getFolderPath == nullptr ||
      FAILED(getFolderPath(nullptr, kCommonAppDataFolder, nullptr, 0, path))) {
    return {};
  }
  return path;
}

std::wstring GetTempFolder() {
  wchar_t path[MAX_PATH] = {};
  const DWORD length = ::GetTempPathW(MAX_PATH, path);
  return length < MAX_PATH ? std::wstring(path, length) : std::wstring();
}

bool CreateSubdirectories(const std::wstring& baseFolder,
                          const std::wstring& relativePath) {
  const std::filesystem::path relative = relativePath;
  if (!IsExistingFolder(baseFolder) || !StaysBelow(relative)) return false;
  std::filesystem::path path = baseFolder;
  for (const std::filesystem::path& element : relative) {
    path /= element;
    if (IsExistingFolder(path.native())) continue;
    if (!::CreateDirectoryW(path.c_str(), nullptr)) return false;
  }
  return true;
}
