// Makes the n-th call of one function that a module imports fail, for any
// function, without knowing its type.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/windows_api.h"

namespace kova::test {

// How a call fails: what it returns, and what it leaves as the last error. The
// function itself is not called, and its output parameters stay as they were.
struct CallFailure {
  uint64_t result = 0;
  DWORD lastError = 0;
};

// Which call fails. `nth` counts from 1; 0: none.
struct FailingCall {
  std::string function;
  uint32_t nth = 0;
  CallFailure failure;
};

// From construction on, every import of `module` passes through a piece of code
// that counts it and either jumps on to the function, with all arguments and
// the stack as they were, or returns the failure. Calls are counted on all
// threads together. To be destroyed after the module has been unloaded: its
// threads make their last calls on their way out.
class CallThunks {
 public:
  CallThunks(HMODULE module, const FailingCall& failing);
  ~CallThunks();

  CallThunks(const CallThunks&) = delete;
  CallThunks& operator=(const CallThunks&) = delete;

  // How often each import has been called so far.
  [[nodiscard]] std::vector<std::pair<std::string, uint32_t>> Calls() const;
  // Whether the call that was to fail has come.
  [[nodiscard]] bool HasFailed() const;
  // From now on no call fails, and none has.
  void LetAllSucceed();

  struct Import;

 private:
  std::vector<std::unique_ptr<Import>> m_imports;
  uint8_t* m_code = nullptr;
};

}  // namespace kova::test
