#include "check/extension_call.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace kova::ctl::check {
namespace {

// What is left of the stack to record an overflow of it.
constexpr ULONG kStackGuaranteeBytes = 64 * 1024;

WorkerState* g_state = nullptr;

// Names the module around `address`, without memory from the heap: the heap may
// be what is broken.
void FindModule(const void* address, CrashRecord& crash) {
  HMODULE module = nullptr;
  if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCWSTR>(address), &module)) {
    crash.offset = reinterpret_cast<ULONG_PTR>(address);
    return;
  }
  crash.offset = reinterpret_cast<ULONG_PTR>(address) -
                 reinterpret_cast<ULONG_PTR>(module);
  wchar_t path[1024] = {};
  const DWORD length = ::GetModuleFileNameW(
      module, path, static_cast<DWORD>(std::size(path) - 1));
  const std::wstring_view whole(path, length);
  const std::wstring_view name = whole.substr(whole.find_last_of(L'\\') + 1);
  name.copy(crash.module, std::size(crash.module) - 1);
}

LONG Record(WorkerState* state, Callee callee,
            const EXCEPTION_RECORD* exception) {
  CrashRecord& crash = state->crash;
  if (!state->crashed) {
    crash.code = exception->ExceptionCode;
    crash.callee = callee;
    FindModule(exception->ExceptionAddress, crash);
    crash.isAccess = crash.code == EXCEPTION_ACCESS_VIOLATION;
    crash.isWrite = crash.isAccess && exception->ExceptionInformation[0] == 1;
    crash.accessed = crash.isAccess ? exception->ExceptionInformation[1] : 0;
    state->crashed = true;
  }
  ::TerminateProcess(::GetCurrentProcess(), exception->ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}

LONG WINAPI RecordUnhandledOne(EXCEPTION_POINTERS* exception) {
  const Callee main = g_state->calls[0].callee;
  return Record(g_state, main == Callee::kEnd ? main : Callee::kOwnThread,
                exception->ExceptionRecord);
}

// The compiler models calls only: a fault in an instruction that stands in the
// guarded block itself might pass the handler by.
__declspec(noinline) void CallBody(void (*body)(void*), void* argument) {
  body(argument);
}

}  // namespace

// No object with a destructor may live in this function.
void CallRecorded(WorkerState& state, Callee callee, void (*body)(void*),
                  void* argument) {
  ULONG guaranteeBytes = kStackGuaranteeBytes;
  ::SetThreadStackGuarantee(&guaranteeBytes);
  __try {
    CallBody(body, argument);
  } __except (Record(&state, callee,
                     static_cast<EXCEPTION_POINTERS*>(GetExceptionInformation())
                         ->ExceptionRecord)) {
    // Never entered: the process has ended.
  }
}

void RecordUnhandled(WorkerState& state) {
  g_state = &state;
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX |
                 SEM_NOOPENFILEERRORBOX);
  ::SetUnhandledExceptionFilter(&RecordUnhandledOne);
}

}  // namespace kova::ctl::check
