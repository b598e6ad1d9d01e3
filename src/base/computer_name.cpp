#include "base/computer_name.h"

#include "base/windows_api.h"

namespace kova {
namespace {

constexpr DWORD kMostUnits = 260;

}  // namespace

std::wstring ComputerName() {
  wchar_t name[kMostUnits] = {};
  DWORD units = kMostUnits;
  if (!::GetComputerNameW(name, &units)) return {};
  return std::wstring(name);
}

}  // namespace kova
