#include "base/this_computer.h"

#include <array>
#include <atomic>
#include <string_view>

#include "base/windows_api.h"

namespace kova {
namespace {

// A FILETIME counts 100 ns from the start of 1601.
constexpr uint64_t kTicksPerSecond = 10000000;
constexpr int64_t kSecondsFrom1601To1970 = 11644473600;

constexpr DWORD kNameUnits = 260;

// A name that any number of threads read while one writes it anew. Nobody
// waits: a thread that is killed while it writes leaves no name.
class SharedName {
 public:
  void Write(std::wstring_view name) {
    uint32_t version = m_version;
    if (IsBeingWritten(version) ||
        !m_version.compare_exchange_strong(version, version + 1)) {
      return;
    }
    for (size_t i = 0; i < name.size(); ++i) m_units[i] = name[i];
    m_units[name.size()] = 0;
    m_version = version + 2;
  }

  // Empty while it is being written.
  [[nodiscard]] std::wstring Read() const {
    const uint32_t version = m_version;
    std::wstring name;
    for (const wchar_t unit : m_units) {
      if (unit == 0) break;
      name += unit;
    }
    const bool isWhole = !IsBeingWritten(version) && version == m_version;
    return isWhole ? name : std::wstring();
  }

 private:
  static bool IsBeingWritten(uint32_t version) { return version % 2 != 0; }

  std::atomic<uint32_t> m_version{0};  // 1 more at each begin and each end
  std::array<std::atomic<wchar_t>, kNameUnits> m_units{};
};

constinit SharedName g_name;

std::wstring AskForName() {
  wchar_t name[kNameUnits] = {};
  DWORD units = kNameUnits;
  if (!::GetComputerNameW(name, &units)) return {};
  return std::wstring(name);
}

}  // namespace

int64_t CurrentTimeSeconds() {
  FILETIME now = {};
  ::GetSystemTimeAsFileTime(&now);
  const uint64_t ticks =
      (uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime;
  return static_cast<int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
}

std::wstring ComputerName() {
  std::wstring name = AskForName();
  g_name.Write(name);
  return name;
}

std::wstring KnownComputerName() {
  std::wstring name = g_name.Read();
  return name.empty() ? AskForName() : name;
}

}  // namespace kova
