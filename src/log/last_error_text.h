// The calling thread's last error as log messages show it.
#pragma once

#include <string>

namespace tk {

// A blank, "GetLastError: 0x" and GetLastError() in eight upper-case
// hexadecimal digits. Keeps the thread's last error.
std::wstring LastErrorText();

}  // namespace tk
