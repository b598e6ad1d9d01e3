#include "registry/common_folders.h"

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
  if (!IsExistingFolder(baseFolder)) return false;
  std::filesystem::path path = baseFolder;
  for (const std::filesystem::path& element :
       std::filesystem::path(relativePath)) {
    path /= element;
    if (IsExistingFolder(path.native())) continue;
    if (!::CreateDirectoryW(path.c_str(), nullptr)) return false;
  }
  return true;
}
