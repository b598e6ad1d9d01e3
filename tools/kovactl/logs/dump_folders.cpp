#include "logs/dump_folders.h"

#include <algorithm>

#include "base/handles.h"
#include "crash/dump.h"

namespace kova::ctl {
namespace {

struct FindTraits {
  using Value = HANDLE;
  static Value None() { return INVALID_HANDLE_VALUE; }
  static void Close(Value value) { ::FindClose(value); }
};

uint64_t Joined(DWORD high, DWORD low) {
  return (static_cast<uint64_t>(high) << 32) | low;
}

}  // namespace

DumpFile Described(const std::wstring& path,
                   const WIN32_FILE_ATTRIBUTE_DATA& data) {
  return {path, Joined(data.nFileSizeHigh, data.nFileSizeLow),
          Joined(data.ftLastWriteTime.dwHighDateTime,
                 data.ftLastWriteTime.dwLowDateTime)};
}

std::vector<std::wstring> DumpFolders() {
  std::wstring below = std::wstring(L"\\") + kDumpFolder;
  std::ranges::replace(below, L'/', L'\\');
  std::vector<std::wstring> folders;
  for (std::wstring base : {GetCommonAppDataFolder(), GetTempFolder()}) {
    base.erase(base.find_last_not_of(L'\\') + 1);
    if (!base.empty()) folders.push_back(base + below);
  }
  return folders;
}

unsigned long ListDumps(const std::wstring& folder,
                        std::vector<DumpFile>& dumps) {
  WIN32_FIND_DATAW found{};
  const UniqueHandle<FindTraits> search(
      ::FindFirstFileW((folder + L"\\*.dmp").c_str(), &found));
  if (!search.IsValid()) {
    const DWORD error = ::GetLastError();
    const bool isMissing =
        error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return isMissing ? ERROR_SUCCESS : error;
  }
  const std::wstring prefix = folder + L"\\";
  const size_t first = dumps.size();
  do {
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    const WIN32_FILE_ATTRIBUTE_DATA data = {
        found.dwFileAttributes, found.ftCreationTime, found.ftLastAccessTime,
        found.ftLastWriteTime,  found.nFileSizeHigh,  found.nFileSizeLow};
    dumps.push_back(Described(prefix + found.cFileName, data));
  } while (::FindNextFileW(search.Get(), &found));
  std::sort(dumps.begin() + static_cast<ptrdiff_t>(first), dumps.end(),
            [](const DumpFile& left, const DumpFile& right) {
              return left.path < right.path;
            });
  return ERROR_SUCCESS;
}

}  // namespace kova::ctl
