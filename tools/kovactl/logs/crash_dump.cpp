#include "logs/crash_dump.h"

#include <algorithm>

#include "base/handles.h"
#include "base/windows_api.h"
#include "common/file_path.h"
#include "common/plain_text.h"
#include "common/random_access_file.h"
#include "crash/dump.h"

namespace kova::ctl {
namespace {

constexpr size_t kNumberDigits = 4;

struct FindTraits {
  using Value = HANDLE;
  static Value None() { return INVALID_HANDLE_VALUE; }
  static void Close(Value value) { ::FindClose(value); }
};

// `data` is what Windows says of the file, from either way of asking.
template <typename Data>
DumpFile Described(const std::wstring& path, const Data& data) {
  const auto joined = [](DWORD high, DWORD low) {
    return (uint64_t{high} << 32) | low;
  };
  return {path, joined(data.nFileSizeHigh, data.nFileSizeLow),
          joined(data.ftLastWriteTime.dwHighDateTime,
                 data.ftLastWriteTime.dwLowDateTime)};
}

std::optional<Failure> ListFolders(const std::vector<std::wstring>& folders,
                                   std::vector<DumpFile>& files) {
  for (const std::wstring& folder : folders) {
    const DWORD error = ListDumps(folder, files);
    if (error != ERROR_SUCCESS) {
      return SystemFailure(ExitCode::kInternalError,
                           L"cannot list the folder " + HarmlessLine(folder),
                           error);
    }
  }
  return std::nullopt;
}

bool Names(const std::wstring& what, const DumpFile& file) {
  const std::wstring name = FileName(file.path);
  const std::optional<uint32_t> number = ParseNumber(what, 10, kNumberDigits);
  return number ? DumpNumber(name) == number : SameName(name, what);
}

Failure NoSuchDump(const std::vector<std::wstring>& folders,
                   const std::wstring& what) {
  std::wstring text = L"there is no dump " + HarmlessLine(what);
  for (const std::wstring& folder : folders) {
    text += (&folder == &folders.front() ? L" in " : L" or ") +
            HarmlessLine(folder);
  }
  return {ExitCode::kNotFound, text + L"; kovactl dumps lists what there is"};
}

CrashDump ReadDump(const DumpFile& file) {
  CrashDump loaded;
  loaded.file = file;
  loaded.number = DumpNumber(FileName(file.path));
  DiskFile bytes;
  const DWORD error = bytes.Open(file.path);
  if (error != ERROR_SUCCESS) {
    loaded.problem = L"cannot be opened (" + SystemErrorText(error) + L")";
    return loaded;
  }
  MinidumpResult result = ReadMinidump(bytes);
  loaded.dump = std::move(result.dump);
  loaded.problem = std::move(result.notADump);
  return loaded;
}

// A path names a dump anywhere.
std::optional<DumpFile> FileAt(const std::wstring& what) {
  if (FileName(what) == what || !FileExists(what)) return std::nullopt;
  const std::wstring path = FullPath(what);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  ::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
  return Described(path, data);
}

}  // namespace

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
  do {
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    dumps.push_back(Described(folder + L"\\" + found.cFileName, found));
  } while (::FindNextFileW(search.Get(), &found));
  return ERROR_SUCCESS;
}

std::wstring CrashDump::FileName() const { return ctl::FileName(file.path); }

uint64_t CrashDump::FileTime() const {
  constexpr uint64_t kUnitsPerSecond = 10'000'000;
  constexpr uint64_t kSecondsFrom1601To1970 = 11'644'473'600;
  if (!dump || dump->timeSeconds == 0) return file.writtenFileTime;
  return (dump->timeSeconds + kSecondsFrom1601To1970) * kUnitsPerSecond;
}

std::optional<uint32_t> DumpNumber(const std::wstring& fileName) {
  const std::wstring pattern = DumpFileName(0);
  const size_t at = pattern.find(L"0000");
  if (fileName.size() != pattern.size()) return std::nullopt;
  const std::optional<uint32_t> number = ParseNumber(
      std::wstring_view(fileName).substr(at, kNumberDigits), 10, kNumberDigits);
  if (!number || !SameName(DumpFileName(static_cast<int>(*number)), fileName)) {
    return std::nullopt;
  }
  return number;
}

std::optional<Failure> LoadDumps(const std::vector<std::wstring>& folders,
                                 std::vector<CrashDump>& dumps) {
  std::vector<DumpFile> files;
  if (auto failure = ListFolders(folders, files)) return failure;
  for (const DumpFile& file : files) dumps.push_back(ReadDump(file));
  std::ranges::sort(dumps, [](const CrashDump& left, const CrashDump& right) {
    const uint64_t leftTime = left.FileTime();
    const uint64_t rightTime = right.FileTime();
    if (leftTime != rightTime) return leftTime > rightTime;
    return left.file.path > right.file.path;
  });
  return std::nullopt;
}

std::optional<Failure> FindDump(const std::vector<std::wstring>& folders,
                                const std::wstring& what, CrashDump& found) {
  if (const std::optional<DumpFile> file = FileAt(what)) {
    found = ReadDump(*file);
    return std::nullopt;
  }
  std::vector<DumpFile> files;
  if (auto failure = ListFolders(folders, files)) return failure;
  std::erase_if(files,
                [&](const DumpFile& file) { return !Names(what, file); });
  if (files.empty()) return NoSuchDump(folders, what);
  if (files.size() > 1) {
    return Failure{ExitCode::kNotFound, L"there are several dumps " +
                                            HarmlessLine(what) +
                                            L"; say which with --folder"};
  }
  found = ReadDump(files.front());
  return std::nullopt;
}

}  // namespace kova::ctl
