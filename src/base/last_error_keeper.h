// Keeps the calling thread's last error over a scope.
#pragma once

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

}  // namespace kova
