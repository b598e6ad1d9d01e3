#include "logs/loaded_dump.h"

#include <algorithm>

#include "base/windows_api.h"
#include "common/file_path.h"
#include "common/plain_text.h"
#include "crash/dump.h"
#include "logs/file_source.h"

namespace kova::ctl {
namespace {

std::wstring NameIn(const std::wstring& path) {
  return path.substr(path.find_last_of(L"\\/") + 1);
}

bool SameName(const std::wstring& left, const std::wstring& right) {
  return ::CompareStringOrdinal(left.c_str(), static_cast<int>(left.size()),
                                right.c_str(), static_cast<int>(right.size()),
                                TRUE) == CSTR_EQUAL;
}

std::optional<uint32_t> ParseNumber(const std::wstring& text) {
  constexpr size_t kMostDigits = 4;
  if (text.empty() || text.size() > kMostDigits) return std::nullopt;
  uint32_t number = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') return std::nullopt;
    number = number * 10 + static_cast<uint32_t>(c - L'0');
  }
  return number;
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
  const std::wstring name = NameIn(file.path);
  const std::optional<uint32_t> number = ParseNumber(what);
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

// A path names a dump anywhere.
std::optional<DumpFile> FileAt(const std::wstring& what) {
  if (NameIn(what) == what || !FileExists(what)) return std::nullopt;
  const std::wstring path = FullPath(what);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  ::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
  return Described(path, data);
}

}  // namespace

std::wstring LoadedDump::FileName() const { return NameIn(file.path); }

uint64_t LoadedDump::FileTime() const {
  constexpr uint64_t kUnitsPerSecond = 10'000'000;
  constexpr uint64_t kSecondsFrom1601To1970 = 11'644'473'600;
  if (!dump || dump->timeSeconds == 0) return file.writtenFileTime;
  return (dump->timeSeconds + kSecondsFrom1601To1970) * kUnitsPerSecond;
}

std::optional<uint32_t> DumpNumber(const std::wstring& fileName) {
  constexpr size_t kDigits = 4;
  const std::wstring pattern = DumpFileName(0);
  const size_t at = pattern.find(L"0000");
  if (fileName.size() != pattern.size()) return std::nullopt;
  const std::optional<uint32_t> number =
      ParseNumber(fileName.substr(at, kDigits));
  if (!number || !SameName(DumpFileName(static_cast<int>(*number)), fileName)) {
    return std::nullopt;
  }
  return number;
}

LoadedDump LoadDump(const DumpFile& file) {
  LoadedDump loaded;
  loaded.file = file;
  loaded.number = DumpNumber(NameIn(file.path));
  FileSource source;
  const DWORD error = source.Open(file.path);
  if (error != ERROR_SUCCESS) {
    loaded.problem = L"cannot be opened (" + SystemErrorText(error) + L")";
    return loaded;
  }
  MinidumpResult result = ReadMinidump(source);
  loaded.dump = std::move(result.dump);
  loaded.problem = std::move(result.notADump);
  return loaded;
}

std::optional<Failure> LoadDumps(const std::vector<std::wstring>& folders,
                                 std::vector<LoadedDump>& dumps) {
  std::vector<DumpFile> files;
  if (auto failure = ListFolders(folders, files)) return failure;
  for (const DumpFile& file : files) dumps.push_back(LoadDump(file));
  std::ranges::sort(dumps, [](const LoadedDump& left, const LoadedDump& right) {
    const uint64_t leftTime = left.FileTime();
    const uint64_t rightTime = right.FileTime();
    if (leftTime != rightTime) return leftTime > rightTime;
    return left.file.path > right.file.path;
  });
  return std::nullopt;
}

std::optional<Failure> FindDump(const std::vector<std::wstring>& folders,
                                const std::wstring& what, LoadedDump& found) {
  if (const std::optional<DumpFile> file = FileAt(what)) {
    found = LoadDump(*file);
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
  found = LoadDump(files.front());
  return std::nullopt;
}

}  // namespace kova::ctl
