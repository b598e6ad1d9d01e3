#include "log/last_error_text.h"

#include "base/handles.h"

namespace tk {

std::wstring LastErrorText() {
  const DWORD error = ::GetLastError();
  const kova::LastErrorKeeper keeper;
  wchar_t text[64] = {};
  ::wsprintfW(text, L" GetLastError: 0x%08X", error);
  return text;
}

}  // namespace tk
