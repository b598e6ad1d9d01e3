// Owners of Windows handles, one type per way of closing, and the keeper of the
// last error that they close under.
#pragma once

#include <utility>

#include "base/windows_api.h"

namespace kova {

// Reads GetLastError() when made and puts it back when it goes out of scope,
// so that what happens in between (a log call, the closing of a handle) does
// not change what a later decision reads. WSAGetLastError() is the same value.
class LastErrorKeeper {
 public:
  LastErrorKeeper() : m_error(::GetLastError()) {}
  ~LastErrorKeeper() { ::SetLastError(m_error); }

  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  const DWORD m_error;
};

// Owns one handle of the kind that Traits describes: its type, the value that
// means "none", and how it is closed. Closing keeps the thread's last error,
// so that an owner leaving its scope never hides why a call before it failed.
// Not safe for use by two threads at once.
template <typename Traits>
class UniqueHandle {
 public:
  using Value = typename Traits::Value;

  UniqueHandle() = default;
  explicit UniqueHandle(Value value) : m_value(value) {}
  UniqueHandle(UniqueHandle&& other) noexcept : m_value(other.Release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  ~UniqueHandle() { Reset(); }

  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;

  [[nodiscard]] bool IsValid() const { return m_value != Traits::None(); }
  [[nodiscard]] Value Get() const { return m_value; }

  // Gives up ownership without closing.
  [[nodiscard]] Value Release() {
    return std::exchange(m_value, Traits::None());
  }

  // Closes what is held, if anything, and takes `value` over.
  void Reset(Value value = Traits::None()) {
    const Value old = std::exchange(m_value, value);
    if (old != Traits::None()) {
      const LastErrorKeeper keeper;
      Traits::Close(old);
    }
  }

  // The address for a call that yields a handle; what was held is closed.
  [[nodiscard]] Value* Receive() {
    Reset();
    return &m_value;
  }

 private:
  Value m_value = Traits::None();
};

struct KernelHandleTraits {
  using Value = HANDLE;
  static Value None() { return nullptr; }
  static void Close(Value value) { ::CloseHandle(value); }
};

struct FileHandleTraits {
  using Value = HANDLE;
  static Value None() { return INVALID_HANDLE_VALUE; }
  static void Close(Value value) { ::CloseHandle(value); }
};

struct WsaEventTraits {
  using Value = WSAEVENT;
  static Value None() { return WSA_INVALID_EVENT; }
  static void Close(Value value) { ::WSACloseEvent(value); }
};

struct SocketTraits {
  using Value = SOCKET;
  static Value None() { return INVALID_SOCKET; }
  static void Close(Value value) { ::closesocket(value); }
};

struct RegistryKeyTraits {
  using Value = HKEY;
  static Value None() { return nullptr; }
  static void Close(Value value) { ::RegCloseKey(value); }
};

struct ModuleTraits {
  using Value = HMODULE;
  static Value None() { return nullptr; }
  static void Close(Value value) { ::FreeLibrary(value); }
};

struct PrinterTraits {
  using Value = HANDLE;
  static Value None() { return nullptr; }
  static void Close(Value value) { ::ClosePrinter(value); }
};

using UniqueKernelHandle = UniqueHandle<KernelHandleTraits>;
using UniqueFile = UniqueHandle<FileHandleTraits>;
using UniqueWsaEvent = UniqueHandle<WsaEventTraits>;
using UniqueSocket = UniqueHandle<SocketTraits>;
using UniqueRegistryKey = UniqueHandle<RegistryKeyTraits>;
using UniqueModule = UniqueHandle<ModuleTraits>;
using UniquePrinter = UniqueHandle<PrinterTraits>;

}  // namespace kova
