#include "registry/o_registry.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "registry/key_path.h"

namespace {

HKEY RootKey(int root) {
  static const HKEY kRoots[] = {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER,
                                HKEY_LOCAL_MACHINE, HKEY_USERS};
  return root < 0 ? nullptr : kRoots[root];
}

// Returns the number of bytes read into `buffer`, or -1.
int32_t QueryValue(HKEY key, const std::wstring& name, BYTE* buffer,
                   DWORD sizeBytes) {
  if (::RegQueryValueExW(key, name.c_str(), nullptr, nullptr, buffer,
                         &sizeBytes) != ERROR_SUCCESS) {
    return -1;
  }
  return static_cast<int32_t>(sizeBytes);
}

// Cut off at a zero, a name would be that of another key or value than the one
// meant.
bool HasZero(const std::wstring& name) {
  return name.find(L'\0') != std::wstring::npos;
}

}  // namespace

int32_t ORegistry::ReadValue(const std::wstring& valueName, void* buffer,
                             int32_t sizeBytes) {
  if (buffer == nullptr || sizeBytes < 0) return -1;
  std::wstring path = m_keyPath;
  std::wstring name = valueName;
  if (!ResolvePath(path, name) || HasZero(name)) return -1;
  const kova::UniqueRegistryKey key = OpenKey(path, false);
  if (!key.IsValid()) return -1;
  // Never without memory: a query without a buffer only asks for the size.
  const std::unique_ptr<BYTE[]> value(
      new (std::nothrow) BYTE[static_cast<size_t>(std::max(sizeBytes, 1))]);
  if (value == nullptr) return -1;
  const int32_t count =
      QueryValue(key.Get(), name, value.get(), static_cast<DWORD>(sizeBytes));
  if (count > 0) {
    std::memcpy(buffer, value.get(),
                static_cast<size_t>(std::min(count, sizeBytes)));
  }
  return count;
}

int32_t ORegistry::WriteValue(const std::wstring& valueName, const void* data) {
  if (data == nullptr) return -1;
  std::wstring path = m_keyPath;
  std::wstring name = valueName;
  if (!ResolvePath(path, name) || HasZero(name)) return -1;
  const kova::UniqueRegistryKey key = OpenKey(path, true);
  if (!key.IsValid()) return -1;
  const LSTATUS status =
      ::RegSetValueExW(key.Get(), name.c_str(), 0, REG_BINARY,
                       static_cast<const BYTE*>(data), 1);
  return status == ERROR_SUCCESS ? 1 : -1;
}

bool ORegistry::ResolvePath(std::wstring& keyPath, std::wstring& valueName) {
  if (!kova::CombinePath(keyPath, valueName)) return false;
  ExpandAliases(keyPath);
  return true;
}

bool ORegistry::SplitRoot(const std::wstring& path, HKEY& root,
                          std::wstring& subkey) {
  kova::RootedKey key;
  const bool isWhole = kova::SplitRootedKey(path, key);
  root = RootKey(key.root);
  subkey = std::move(key.subkey);
  return isWhole;
}

std::wstring ORegistry::EscapeName(std::wstring text) {
  return kova::EscapeName(std::move(text));
}

std::wstring ORegistry::UnescapeName(std::wstring text) {
  return kova::UnescapeName(std::move(text));
}

void ORegistry::ExpandAliases(std::wstring& path) {
  kova::ExpandKeyAliases(path);
}

kova::UniqueRegistryKey ORegistry::OpenKey(const std::wstring& path,
                                           bool create) {
  HKEY root = nullptr;
  std::wstring subkey;
  if (!SplitRoot(path, root, subkey) || HasZero(subkey)) return {};
  const REGSAM readWrite = (KEY_READ | KEY_WRITE) | m_additionalAccess;
  const REGSAM readOnly = KEY_READ | m_additionalAccess;
  for (const REGSAM access : {readWrite, readOnly}) {
    kova::UniqueRegistryKey key;
    if (::RegOpenKeyExW(root, subkey.c_str(), 0, access, key.Receive()) ==
        ERROR_SUCCESS) {
      return key;
    }
  }
  kova::UniqueRegistryKey key;
  if (!create ||
      ::RegCreateKeyExW(root, subkey.c_str(), 0, nullptr, 0, readWrite, nullptr,
                        key.Receive(), nullptr) != ERROR_SUCCESS) {
    return {};
  }
  return key;
}
