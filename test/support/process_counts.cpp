#include "test/support/process_counts.h"

#include "base/handles.h"
#include "base/windows_api.h"
#include "test/support/exported_function.h"
// After the Windows headers.
#include <tlhelp32.h>

#include <cstdint>
#include <vector>

namespace kova::test {
namespace {

// SystemExtendedHandleInformation, as NtQuerySystemInformation gives it.
constexpr int kExtendedHandleInformation = 64;
constexpr long kTooSmall = static_cast<long>(0xC0000004);

struct HandleEntry {
  void* object;
  ULONG_PTR processId;
  ULONG_PTR handle;
  ULONG access;
  USHORT backTrace;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};
struct HandleTable {
  ULONG_PTR count;
  ULONG_PTR reserved;
  HandleEntry entries[1];
};

using Query = long WINAPI(int, void*, ULONG, ULONG*);

std::vector<uint8_t> ReadHandleTable() {
  Query* const query = ExportedFunction<Query>(::GetModuleHandleW(L"ntdll.dll"),
                                               "NtQuerySystemInformation");
  std::vector<uint8_t> table(1 << 16);
  ULONG needed = 0;
  while (query(kExtendedHandleInformation, table.data(),
               static_cast<ULONG>(table.size()), &needed) == kTooSmall) {
    table.resize(table.size() * 2);
  }
  return table;
}

}  // namespace

size_t CountThreads(DWORD processId) {
  const UniqueFile snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof(entry);
  size_t count = 0;
  for (BOOL more = ::Thread32First(snapshot.Get(), &entry); more;
       more = ::Thread32Next(snapshot.Get(), &entry)) {
    if (entry.th32OwnerProcessID == processId) ++count;
  }
  return count;
}

bool WaitForThreads(size_t most, DWORD patienceMs) {
  const uint64_t deadlineMs = ::GetTickCount64() + patienceMs;
  while (CountThreads() > most) {
    if (::GetTickCount64() > deadlineMs) return false;
    ::Sleep(5);
  }
  return true;
}

size_t CountHandles(DWORD processId) {
  const std::vector<uint8_t> bytes = ReadHandleTable();
  const auto* const table = reinterpret_cast<const HandleTable*>(bytes.data());
  size_t count = 0;
  for (ULONG_PTR i = 0; i < table->count; ++i) {
    if (table->entries[i].processId == processId) ++count;
  }
  return count;
}

DWORD FindProcess(const wchar_t* imageName) {
  const UniqueFile snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof(entry);
  for (BOOL more = ::Process32FirstW(snapshot.Get(), &entry); more;
       more = ::Process32NextW(snapshot.Get(), &entry)) {
    if (::lstrcmpiW(entry.szExeFile, imageName) == 0) {
      return entry.th32ProcessID;
    }
  }
  return 0;
}

uint64_t CountPrivateBytes() {
  uint64_t bytes = 0;
  MEMORY_BASIC_INFORMATION region = {};
  const char* next = nullptr;
  while (::VirtualQuery(next, &region, sizeof(region)) != 0) {
    if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) {
      bytes += region.RegionSize;
    }
    next = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
  }
  return bytes;
}

}  // namespace kova::test
