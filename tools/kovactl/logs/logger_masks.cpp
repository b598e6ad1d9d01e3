#include "logs/logger_masks.h"

#include <algorithm>

#include "base/handles.h"
#include "log/mask_key.h"

namespace kova::ctl {
namespace {

// The longest name a value can have, and a terminator.
constexpr DWORD kNameCharacters = 16384;

bool SameName(const std::wstring& left, const std::wstring& right) {
  return ::CompareStringOrdinal(left.c_str(), static_cast<int>(left.size()),
                                right.c_str(), static_cast<int>(right.size()),
                                TRUE) == CSTR_EQUAL;
}

LSTATUS ReadLogger(HKEY key, DWORD index, std::wstring& buffer,
                   LoggerMask& logger) {
  DWORD length = kNameCharacters;
  const LSTATUS status = ::RegEnumValueW(key, index, buffer.data(), &length,
                                         nullptr, nullptr, nullptr, nullptr);
  if (status != ERROR_SUCCESS) return status;
  logger.name.assign(buffer, 0, length);
  return ReadValueState(key, logger.name.c_str(), logger.value);
}

}  // namespace

std::optional<uint32_t> LoggerMask::Mask() const {
  uint32_t mask = 0;
  if (!value.present || value.data.size() > sizeof(mask)) return std::nullopt;
  std::ranges::copy(value.data, reinterpret_cast<uint8_t*>(&mask));
  return mask;
}

bool LoggerMask::IsWellFormed() const {
  return value.present && value.type == REG_DWORD &&
         value.data.size() == sizeof(uint32_t);
}

LSTATUS ReadLoggerMasks(std::vector<LoggerMask>& loggers) {
  loggers.clear();
  UniqueRegistryKey key;
  LSTATUS status =
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMaskKey, 0, KEY_READ, key.Receive());
  if (status == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (status != ERROR_SUCCESS) return status;
  std::wstring buffer(kNameCharacters, L'\0');
  for (DWORD index = 0;; ++index) {
    LoggerMask logger;
    status = ReadLogger(key.Get(), index, buffer, logger);
    if (status == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
    if (status != ERROR_SUCCESS) return status;
    if (logger.value.present) loggers.push_back(std::move(logger));
  }
}

const LoggerMask* FindLogger(const std::vector<LoggerMask>& loggers,
                             const std::wstring& name) {
  for (const LoggerMask& logger : loggers) {
    if (SameName(logger.name, name)) return &logger;
  }
  return nullptr;
}

LSTATUS WriteLoggerMask(const std::wstring& name, uint32_t mask) {
  UniqueRegistryKey key;
  const LSTATUS status = ::RegCreateKeyExW(
      HKEY_LOCAL_MACHINE, kMaskKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
      KEY_SET_VALUE, nullptr, key.Receive(), nullptr);
  if (status != ERROR_SUCCESS) return status;
  return ::RegSetValueExW(key.Get(), name.c_str(), 0, REG_DWORD,
                          reinterpret_cast<const BYTE*>(&mask), sizeof(mask));
}

}  // namespace kova::ctl
