#include "check/extension_call.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "common/utf8.h"
#include "text/text_append.h"

namespace kova::ctl::check {
namespace {

// What is left of the stack to record an overflow of it.
constexpr ULONG kStackGuaranteeBytes = 64 * 1024;

WorkerState* g_state = nullptr;

LONG Record(WorkerState* state, Callee callee,
            const EXCEPTION_RECORD* exception) {
  CrashRecord& crash = state->crash;
  if (!state->crashed) {
    crash.code = exception->ExceptionCode;
    crash.callee = callee;
    const CodePlace place = PlaceOf(exception->ExceptionAddress);
    std::ranges::copy(place.module, crash.module);
    crash.offset = place.offset;
    crash.isAccess = crash.code == EXCEPTION_ACCESS_VIOLATION;
    crash.isWrite = crash.isAccess && exception->ExceptionInformation[0] == 1;
    crash.accessed = crash.isAccess ? exception->ExceptionInformation[1] : 0;
    state->crashed = true;
  }
  ::TerminateProcess(::GetCurrentProcess(), exception->ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}

LONG WINAPI RecordUnhandledOne(EXCEPTION_POINTERS* exception) {
  // A call's own handler is passed by when the stack it stands on is spoiled.
  Callee callee = CalleeOfThisThread();
  if (callee == Callee::kNone) {
    const Callee main = g_state->calls[0].callee;
    callee = main == Callee::kEnd ? main : Callee::kOwnThread;
  }
  return Record(g_state, callee, exception->ExceptionRecord);
}

// The compiler models calls only: a fault in an instruction that stands in the
// guarded block itself might pass the handler by.
__declspec(noinline) void CallBody(void (*body)(void*), void* argument) {
  body(argument);
}

}  // namespace

Callee CalleeOfThisThread() {
  if (g_state == nullptr) return Callee::kNone;
  const DWORD thread = ::GetCurrentThreadId();
  for (const CallInProgress& call : g_state->calls) {
    const Callee callee = call.callee;
    if (callee != Callee::kNone && call.threadId == thread) return callee;
  }
  return Callee::kNone;
}

CodePlace PlaceOf(const void* address) {
  CodePlace place{{}, reinterpret_cast<ULONG_PTR>(address)};
  HMODULE module = nullptr;
  if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCWSTR>(address), &module)) {
    return place;
  }
  place.offset -= reinterpret_cast<ULONG_PTR>(module);
  wchar_t path[1024] = {};
  const DWORD length = ::GetModuleFileNameW(
      module, path, static_cast<DWORD>(std::size(path) - 1));
  const std::wstring_view whole(path, length);
  const std::wstring_view name = whole.substr(whole.find_last_of(L'\\') + 1);
  name.copy(place.module, std::size(place.module) - 1);
  return place;
}

std::string PlaceText(const wchar_t* module, uint64_t offset) {
  std::wstring text =
      module[0] == L'\0' ? L"address 0x" : std::wstring(module) + L"+0x";
  AppendHex(text, offset, 1, HexDigits::kUpper);
  return ToUtf8(text);
}

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
