#include "check/host_state.h"

#include <xmmintrin.h>

#include "base/handles.h"

namespace kova::ctl::check {
namespace {

uint64_t Number(const void* pointer) {
  return reinterpret_cast<ULONG_PTR>(pointer);
}

// There is no call that only reads it.
uint64_t ReadFilter() {
  LPTOP_LEVEL_EXCEPTION_FILTER const filter =
      ::SetUnhandledExceptionFilter(nullptr);
  ::SetUnhandledExceptionFilter(filter);
  return Number(reinterpret_cast<const void*>(filter));
}
void WriteFilter(uint64_t value) {
  ::SetUnhandledExceptionFilter(reinterpret_cast<LPTOP_LEVEL_EXCEPTION_FILTER>(
      static_cast<ULONG_PTR>(value)));
}

template <DWORD kWhich>
uint64_t ReadStandardHandle() {
  return Number(::GetStdHandle(kWhich));
}
template <DWORD kWhich>
void WriteStandardHandle(uint64_t value) {
  ::SetStdHandle(kWhich, reinterpret_cast<HANDLE>(value));
}

uint64_t ReadPriority() {
  return static_cast<uint64_t>(::GetThreadPriority(::GetCurrentThread()));
}
void WritePriority(uint64_t value) {
  ::SetThreadPriority(::GetCurrentThread(), static_cast<int>(value));
}

uint64_t ReadToken() {
  UniqueKernelHandle token;
  return ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE,
                           token.Receive())
             ? 1
             : 0;
}

// Rounding, masks and flushing; the flags below them tell of results.
constexpr unsigned kControlBits = 0xFFC0;

uint64_t ReadVectorControl() { return _mm_getcsr() & kControlBits; }
void WriteVectorControl(uint64_t value) {
  _mm_setcsr(static_cast<unsigned>(value));
}

uint64_t ReadCoprocessorControl() {
  uint16_t word = 0;
  __asm__ volatile("fnstcw %0" : "=m"(word));
  return word;
}
void WriteCoprocessorControl(uint64_t value) {
  const auto word = static_cast<uint16_t>(value);
  __asm__ volatile("fldcw %0" : : "m"(word));
}

struct Trait {
  const char* name;
  Flaw flaw;
  uint64_t (*read)();
  void (*write)(uint64_t);
};

constexpr Trait kTraitTable[] = {
    {"the error mode", Flaw::kHostState,
     [] { return uint64_t{::GetErrorMode()}; },
     [](uint64_t value) { ::SetErrorMode(static_cast<UINT>(value)); }},
    {"the unhandled-exception filter", Flaw::kHostState, &ReadFilter,
     &WriteFilter},
    {"the priority class of the process", Flaw::kHostState,
     [] { return uint64_t{::GetPriorityClass(::GetCurrentProcess())}; },
     [](uint64_t value) {
       ::SetPriorityClass(::GetCurrentProcess(), static_cast<DWORD>(value));
     }},
    {"the priority of the thread", Flaw::kHostState, &ReadPriority,
     &WritePriority},
    {"the locale of the thread", Flaw::kHostState,
     [] { return uint64_t{::GetThreadLocale()}; },
     [](uint64_t value) { ::SetThreadLocale(static_cast<LCID>(value)); }},
    {"whom the thread acts for", Flaw::kHostState, &ReadToken,
     [](uint64_t) { ::RevertToSelf(); }},
    {"standard input", Flaw::kHostState, &ReadStandardHandle<STD_INPUT_HANDLE>,
     &WriteStandardHandle<STD_INPUT_HANDLE>},
    {"standard output", Flaw::kHostState,
     &ReadStandardHandle<STD_OUTPUT_HANDLE>,
     &WriteStandardHandle<STD_OUTPUT_HANDLE>},
    {"standard error", Flaw::kHostState, &ReadStandardHandle<STD_ERROR_HANDLE>,
     &WriteStandardHandle<STD_ERROR_HANDLE>},
    {"rounding or exceptions of SSE", Flaw::kFloatingPoint, &ReadVectorControl,
     &WriteVectorControl},
    {"rounding, precision or exceptions of the x87", Flaw::kFloatingPoint,
     &ReadCoprocessorControl, &WriteCoprocessorControl},
};
static_assert(std::size(kTraitTable) == HostState::kTraits);

std::wstring CurrentFolder() {
  wchar_t folder[1024] = {};
  const DWORD length =
      ::GetCurrentDirectoryW(static_cast<DWORD>(std::size(folder)), folder);
  return {folder, std::min<size_t>(length, std::size(folder) - 1)};
}

void AddTo(std::string& list, const char* name) {
  list += (list.empty() ? "" : ", ") + std::string(name);
}

}  // namespace

HostState::HostState() : m_folder(CurrentFolder()) {
  for (size_t i = 0; i < kTraits; ++i) m_values[i] = kTraitTable[i].read();
}

void HostState::Check(Callee callee, Reporter& reporter) const {
  std::string changed;
  for (size_t i = 0; i < kTraits; ++i) {
    const Trait& trait = kTraitTable[i];
    if (trait.read() == m_values[i]) continue;
    trait.write(m_values[i]);
    if (trait.flaw == Flaw::kHostState) {
      AddTo(changed, trait.name);
    } else {
      reporter.Report({trait.flaw, callee, trait.name});
    }
  }
  if (CurrentFolder() != m_folder) {
    ::SetCurrentDirectoryW(m_folder.c_str());
    AddTo(changed, "the current folder");
  }
  if (!changed.empty()) reporter.Report({Flaw::kHostState, callee, changed});
}

}  // namespace kova::ctl::check
