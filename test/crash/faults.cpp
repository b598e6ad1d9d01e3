#include "test/crash/faults.h"

#include "base/windows_api.h"

namespace kova::test {
namespace {

struct NamedFault {
  std::string_view name;
  Fault* fault;
};
constexpr NamedFault kFaults[] = {{"null", &WriteToNull},
                                  {"throw", &ThrowANumber},
                                  {"divide", &DivideByZero},
                                  {"overflow", &OverflowTheStack}};

__attribute__((noinline)) unsigned Recurse(volatile char* outer) {
  // Less than a page, so that no helper of the compiler touches it first.
  volatile char block[2048] = {};
  block[0] = outer[0];
  // Never true, but the compiler cannot know.
  if (block[2047] == 1) return 0;
  return Recurse(block) + static_cast<unsigned>(block[0]);
}

// Windows keeps a thread's guard page in front of the stack that is guaranteed
// to be left. Wine commits the whole stack and leaves the guard page at its
// very end, so it is moved there to where Windows would have it.
void PlaceGuardPage() {
  const HMODULE native = ::GetModuleHandleW(L"ntdll.dll");
  if (::GetProcAddress(native, "wine_get_version") == nullptr) return;
  constexpr ULONG kPageBytes = 4096;
  ULONG guaranteeBytes = 0;
  ::SetThreadStackGuarantee(&guaranteeBytes);
  if (guaranteeBytes == 0) return;
  MEMORY_BASIC_INFORMATION stack = {};
  ::VirtualQuery(&stack, &stack, sizeof(stack));
  char* const page = static_cast<char*>(stack.AllocationBase) + guaranteeBytes;
  DWORD old = 0;
  ::VirtualProtect(page, kPageBytes, PAGE_READWRITE | PAGE_GUARD, &old);
}

}  // namespace

__attribute__((noinline)) void WriteToNull() {
  volatile int* volatile nothing = nullptr;
  *nothing = 4660;
}

__attribute__((noinline)) void ThrowANumber() { throw 4660; }

__attribute__((noinline)) void DivideByZero() {
  volatile int nothing = 0;
  // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): the purpose of it
  volatile int result = 4660 / nothing;
  (void)result;
}

__attribute__((noinline)) void OverflowTheStack() {
  PlaceGuardPage();
  volatile char block[1] = {};
  (void)Recurse(block);
}

Fault* FindFault(std::string_view name) {
  for (const NamedFault& row : kFaults) {
    if (row.name == name) return row.fault;
  }
  return nullptr;
}

}  // namespace kova::test
