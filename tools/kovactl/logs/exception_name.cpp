#include "logs/exception_name.h"

#include "common/plain_text.h"

namespace kova::ctl {
namespace {

struct Row {
  uint32_t code;
  const wchar_t* name;
};

constexpr uint32_t kAccessViolation = 0xC0000005;
constexpr uint32_t kInPageError = 0xC0000006;

constexpr Row kNames[] = {
    {0x20474343, L"C++ exception"},
    {0x40010005, L"Ctrl-C"},
    {0x80000001, L"guard page touched"},
    {0x80000002, L"misaligned data"},
    {0x80000003, L"breakpoint"},
    {0x80000004, L"single step"},
    {kAccessViolation, L"access violation"},
    {kInPageError, L"page could not be read"},
    {0xC0000008, L"invalid handle"},
    {0xC0000017, L"out of memory"},
    {0xC000001D, L"illegal instruction"},
    {0xC0000025, L"went on after a fatal exception"},
    {0xC0000026, L"invalid exception disposition"},
    {0xC000008C, L"array bounds exceeded"},
    {0xC000008D, L"floating point: denormal operand"},
    {0xC000008E, L"floating point: division by zero"},
    {0xC000008F, L"floating point: inexact result"},
    {0xC0000090, L"floating point: invalid operation"},
    {0xC0000091, L"floating point: overflow"},
    {0xC0000092, L"floating point: stack check"},
    {0xC0000093, L"floating point: underflow"},
    {0xC0000094, L"integer division by zero"},
    {0xC0000095, L"integer overflow"},
    {0xC0000096, L"privileged instruction"},
    {0xC00000FD, L"stack overflow"},
    {0xC0000135, L"library not found"},
    {0xC0000138, L"function not found in a library"},
    {0xC0000139, L"function not found in a library"},
    {0xC0000142, L"library failed to start"},
    {0xC0000194, L"possible deadlock"},
    {0xC0000374, L"heap corruption"},
    {0xC0000409, L"fail-fast or stack buffer overrun"},
    {0xC0000420, L"assertion failed"},
    {0xC06D007E, L"delay-loaded library not found"},
    {0xC06D007F, L"delay-loaded function not found"},
    {0xE0434352, L".NET exception"},
    {0xE06D7363, L"C++ exception"},
};

std::wstring AccessText(uint64_t kind) {
  if (kind == 0) return L"reading";
  if (kind == 1) return L"writing";
  return kind == 8 ? L"executing" : L"using";
}

}  // namespace

std::wstring ExceptionName(uint32_t code) {
  for (const Row& row : kNames) {
    if (row.code == code) return row.name;
  }
  constexpr uint32_t kCustomer = 0x20000000;
  return (code & kCustomer) != 0 ? L"an exception of the program's own"
                                 : L"unknown exception";
}

std::wstring ExceptionText(const DumpException& exception) {
  std::wstring text = ExceptionName(exception.code);
  const bool hasAddress =
      exception.code == kAccessViolation || exception.code == kInPageError;
  if (hasAddress && exception.parameters.size() >= 2) {
    text += L", " + AccessText(exception.parameters[0]) + L" address " +
            HexText(exception.parameters[1], 1);
  }
  return text;
}

}  // namespace kova::ctl
