// Registry values, addressed in the key-path language (see key_path.h).
#pragma once

#include <cstdint>
#include <string>

#include "base/handles.h"

// Bound to one key path; the name of a value may extend or replace it. Holds
// no open key between calls. No operation logs or throws. An object is used by
// one thread at a time; different objects may be used at once.
class ORegistry {
 public:
  ORegistry() = default;
  virtual ~ORegistry() = default;

  ORegistry(const ORegistry&) = delete;
  ORegistry& operator=(const ORegistry&) = delete;

  // The path that values are looked up below; empty at first.
  void SetKeyPath(std::wstring keyPath) { m_keyPath = std::move(keyPath); }
  // Flags that are added to every access mask, such as KEY_WOW64_64KEY; 0 at
  // first.
  void SetAdditionalAccess(uint32_t access) { m_additionalAccess = access; }

  // Reads a value of any type into `buffer`, which has room for `sizeBytes`.
  // Returns the number of bytes the value holds, or -1: no such value, a value
  // larger than the buffer, a path that leads nowhere, a name with a zero in
  // it, a null buffer, a negative size, no memory for a second buffer.
  [[nodiscard]] int32_t ReadValue(const std::wstring& valueName, void* buffer,
                                  int32_t sizeBytes);

  // Writes the one byte at `data` as a REG_BINARY value, and makes the key if
  // there is none. Returns 1, or -1 on any failure, a null `data` included.
  int32_t WriteValue(const std::wstring& valueName, const void* data);

  // From the object's key path and a value's name, makes the expanded path of
  // the key and the plain name of the value. False, and both are left as they
  // were, if together they hold neither '/' nor ':'.
  [[nodiscard]] bool ResolvePath(std::wstring& keyPath,
                                 std::wstring& valueName);

  // Makes a root key, which is not to be closed, and a subkey with '\' between
  // its names from an expanded path. False if there is no such root, and then
  // `root` is null, or if the subkey is empty.
  [[nodiscard]] static bool SplitRoot(const std::wstring& path, HKEY& root,
                                      std::wstring& subkey);

  // See key_path.h.
  [[nodiscard]] static std::wstring EscapeName(std::wstring text);
  [[nodiscard]] static std::wstring UnescapeName(std::wstring text);

  // Rewrites an alias at the front of `path` to its numbered form.
  virtual void ExpandAliases(std::wstring& path);

  // Opens the key of an expanded path for reading and writing, or, failing
  // that, for reading alone, or, failing that and if `create` is set, makes
  // it. Holds no key on failure.
  [[nodiscard]] virtual kova::UniqueRegistryKey OpenKey(
      const std::wstring& path, bool create);

 private:
  std::wstring m_keyPath;
  uint32_t m_additionalAccess = 0;
};
