#include "crash/dump_file.h"

#include <filesystem>

#include "crash/common_folders.h"
#include "crash/debug_help.h"
#include "crash/dump_policy.h"

namespace kova {
namespace {

// 0x41
constexpr MINIDUMP_TYPE kContents = static_cast<MINIDUMP_TYPE>(
    MiniDumpWithDataSegs | MiniDumpWithIndirectlyReferencedMemory);

// A path whose status cannot be told counts as free.
bool Exists(const std::wstring& path) {
  return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::filesystem::path MakeDumpFolder() {
  std::wstring base = GetCommonAppDataFolder();
  if (base.empty()) base = GetTempFolder();
  (void)CreateSubdirectories(base, kDumpFolder);
  return std::filesystem::path(base) / kDumpFolder;
}

}  // namespace

std::wstring ChooseDumpFile() {
  const std::filesystem::path folder = MakeDumpFolder();
  std::wstring path;
  // Deliberate: gaps are filled, and where every number is taken the last dump
  // is overwritten.
  for (int number = 0; number < kDumpFileCount; ++number) {
    path = (folder / DumpFileName(number)).native();
    if (!Exists(path)) break;
  }
  return path;
}

bool WriteDump(HANDLE file, EXCEPTION_POINTERS* pointers) {
  MINIDUMP_EXCEPTION_INFORMATION exception = {};
  exception.ThreadId = ::GetCurrentThreadId();
  exception.ExceptionPointers = pointers;
  exception.ClientPointers = FALSE;
  return ::MiniDumpWriteDump(::GetCurrentProcess(), ::GetCurrentProcessId(),
                             file, kContents, &exception, nullptr,
                             nullptr) != FALSE;
}

}  // namespace kova
