// A clock that stands still until a test moves it.
#pragma once

#include <cstdint>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

namespace kova::test {

// From construction to destruction, GetTickCount64() as `module` (null: this
// program) calls it gives what the test set. The module must import it. At
// most one may live at a time. Safe to use on any thread.
class FakeTickCount {
 public:
  explicit FakeTickCount(uint64_t nowMs = 1000000, HMODULE module = nullptr);

  void Set(uint64_t nowMs);
  void Advance(uint64_t byMs);

 private:
  const ImportPatch<decltype(::GetTickCount64)> m_patch;
};

}  // namespace kova::test
