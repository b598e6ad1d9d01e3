#include "logs/dump_words.h"

#include "base/windows_api.h"
#include "common/plain_text.h"

namespace kova::ctl {
namespace {

struct Architecture {
  uint16_t value;
  const wchar_t* name;
};
constexpr Architecture kArchitectures[] = {
    {0, L"x86"}, {5, L"ARM"}, {9, L"x64"}, {12, L"ARM64"}};

std::wstring Padded(unsigned number, size_t width) {
  std::wstring text = std::to_wstring(number);
  if (text.size() < width) text.insert(0, width - text.size(), L'0');
  return text;
}

std::wstring DateAndTime(const SYSTEMTIME& time, wchar_t between) {
  return Padded(time.wYear, 4) + L"-" + Padded(time.wMonth, 2) + L"-" +
         Padded(time.wDay, 2) + between + Padded(time.wHour, 2) + L":" +
         Padded(time.wMinute, 2) + L":" + Padded(time.wSecond, 2);
}

SYSTEMTIME ToSystemTime(uint64_t fileTime) {
  const FILETIME parts = {static_cast<DWORD>(fileTime),
                          static_cast<DWORD>(fileTime >> 32)};
  SYSTEMTIME time{};
  ::FileTimeToSystemTime(&parts, &time);
  return time;
}

std::wstring ArchitectureName(uint16_t value) {
  for (const Architecture& row : kArchitectures) {
    if (row.value == value) return row.name;
  }
  return L"processor type " + std::to_wstring(value);
}

}  // namespace

std::wstring Right(const std::wstring& text, size_t width) {
  if (text.size() >= width) return text;
  return std::wstring(width - text.size(), L' ') + text;
}

std::wstring Left(const std::wstring& text, size_t width) {
  if (text.size() >= width) return text;
  return text + std::wstring(width - text.size(), L' ');
}

std::wstring SizeText(uint64_t sizeBytes) {
  constexpr const wchar_t* kUnits[] = {L" B", L" KB", L" MB", L" GB"};
  constexpr uint64_t kMostDigits = 10000;
  size_t unit = 0;
  while (sizeBytes >= kMostDigits && unit + 1 < std::size(kUnits)) {
    sizeBytes = (sizeBytes + 512) / 1024;
    ++unit;
  }
  return std::to_wstring(sizeBytes) + kUnits[unit];
}

std::wstring LocalTimeText(uint64_t fileTime) {
  const SYSTEMTIME utc = ToSystemTime(fileTime);
  SYSTEMTIME local{};
  const bool isLocal =
      ::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) != FALSE;
  return DateAndTime(isLocal ? local : utc, L' ');
}

std::wstring UtcTimeText(uint64_t fileTime) {
  return DateAndTime(ToSystemTime(fileTime), L'T') + L"Z";
}

std::wstring SystemText(const DumpSystem& system) {
  std::wstring text = std::to_wstring(system.major) + L"." +
                      std::to_wstring(system.minor) + L" build " +
                      std::to_wstring(system.build);
  if (!system.servicePack.empty()) {
    text += L" " + HarmlessLine(system.servicePack);
  }
  return text + L", " + ArchitectureName(system.architecture) + L", " +
         std::to_wstring(system.processors) +
         (system.processors == 1 ? L" processor" : L" processors");
}

std::wstring Tail(const std::wstring& text, size_t width) {
  constexpr size_t kDots = 3;
  if (text.size() <= width) return text;
  return L"..." + text.substr(text.size() - (width - kDots));
}

}  // namespace kova::ctl
