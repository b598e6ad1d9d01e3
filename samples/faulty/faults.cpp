#include "faults.h"

#include <windows.h>

#include <cstdlib>
#include <string>

namespace faulty {
namespace {

std::string ReadFault() {
  char text[64] = {};
  const DWORD length = ::GetEnvironmentVariableA(
      "KOVA_FAULT", text, static_cast<DWORD>(sizeof(text)));
  return {text, length < sizeof(text) ? length : 0};
}

const std::string& Fault() {
  static const std::string fault = ReadFault();
  return fault;
}

__attribute__((noinline)) void Crash() {
  volatile int* volatile nothing = nullptr;
  *nothing = 1;
}

}  // namespace

bool Has(std::string_view name) { return Fault() == name; }

void Misbehave(std::string_view entry) {
  const std::string suffix = "-" + std::string(entry);
  if (!std::string_view(Fault()).ends_with(suffix)) return;
  if (Has("crash" + suffix)) Crash();
  if (Has("throw" + suffix)) throw 1;
  if (Has("hang" + suffix)) ::Sleep(INFINITE);
  if (Has("exit" + suffix)) std::exit(3);
}

}  // namespace faulty
