#include "check/holdings.h"

#include <algorithm>
#include <vector>

#include "base/handles.h"
// After the rest of Windows.
#include <psapi.h>
#include <tlhelp32.h>

namespace kova::ctl::check {
namespace {

// SystemExtendedHandleInformation, as NtQuerySystemInformation gives it. The
// documented GetProcessHandleCount counts nothing under Wine.
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

int64_t CountHandles() {
  using Query = long WINAPI(int, void*, ULONG, ULONG*);
  auto* const query =
      reinterpret_cast<Query*>(reinterpret_cast<void*>(::GetProcAddress(
          ::GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  std::vector<ULONG_PTR> bytes(0x10000);
  ULONG needed = 0;
  while (query(kExtendedHandleInformation, bytes.data(),
               static_cast<ULONG>(bytes.size() * sizeof(ULONG_PTR)),
               &needed) == kTooSmall) {
    bytes.resize(bytes.size() * 2);
  }
  const auto* const table = reinterpret_cast<const HandleTable*>(bytes.data());
  const HandleEntry* const end = table->entries + table->count;
  return std::count_if(table->entries, end, [](const HandleEntry& entry) {
    return entry.processId == ::GetCurrentProcessId();
  });
}

int64_t CountThreads() {
  const UniqueFile snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  int64_t count = 0;
  for (BOOL more = ::Thread32First(snapshot.Get(), &entry); more;
       more = ::Thread32Next(snapshot.Get(), &entry)) {
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
  }
  return count;
}

template <DWORD kKind>
int64_t CountGuiObjects() {
  return ::GetGuiResources(::GetCurrentProcess(), kKind);
}

int64_t CountBlocks(HANDLE heap) {
  int64_t count = 0;
  PROCESS_HEAP_ENTRY entry{};
  ::HeapLock(heap);
  while (::HeapWalk(heap, &entry)) {
    if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) ++count;
  }
  ::HeapUnlock(heap);
  return count;
}

int64_t CountHeapBlocks() {
  int64_t count = 0;
  for (const HANDLE heap : ProcessHeaps()) count += CountBlocks(heap);
  return count;
}

// Two fields are documented to hold the same number; older systems leave the
// one at 0, Wine the other.
int64_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  counters.cb = sizeof(counters);
  ::GetProcessMemoryInfo(::GetCurrentProcess(),
                         reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof(counters));
  return static_cast<int64_t>(
      std::max(counters.PrivateUsage, counters.PagefileUsage));
}

constexpr GrowthLimit kFew = {8, 10};
constexpr size_t kPrivateBytesKind = 5;

}  // namespace

// A leaked thread has a handle, and both have memory.
const std::array<HoldingKind, kHoldingKinds> kHoldings = {{
    {"threads", Flaw::kThreadGrowth, kFew, &CountThreads},
    {"handles", Flaw::kHandleGrowth, kFew, &CountHandles},
    {"GDI objects", Flaw::kGuiGrowth, kFew, &CountGuiObjects<GR_GDIOBJECTS>},
    {"USER objects", Flaw::kGuiGrowth, kFew, &CountGuiObjects<GR_USEROBJECTS>},
    {"blocks of the heap", Flaw::kMemoryGrowth, {16, 20}, &CountHeapBlocks},
    // The heap's own rounding up, and 16 bytes a request.
    {"KiB of memory", Flaw::kMemoryGrowth, {0x8000, 16000}, &PrivateBytes},
}};

std::vector<HANDLE> ProcessHeaps() {
  std::vector<HANDLE> heaps;
  // An array that is too small is not filled.
  for (DWORD count = 64; count > heaps.size();) {
    heaps.resize(count);
    count = ::GetProcessHeaps(count, heaps.data());
    if (count <= heaps.size()) heaps.resize(count);
  }
  return heaps;
}

Holdings CountHoldings() {
  Holdings counts{};
  for (size_t i = 0; i < kHoldingKinds; ++i) counts[i] = kHoldings[i].count();
  return counts;
}

std::string HoldingText(size_t kind, int64_t count) {
  constexpr int64_t kKilobyte = 1024;
  const int64_t shown = kind == kPrivateBytesKind ? count / kKilobyte : count;
  return std::to_string(shown) + " " + kHoldings[kind].name;
}

}  // namespace kova::ctl::check
