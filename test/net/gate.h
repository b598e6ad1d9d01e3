// Holds threads back in tests.
#pragma once

#include "base/windows_api.h"

namespace kova::test {

// An event that holds threads back until a test opens it.
class Gate {
 public:
  Gate();
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  // Notes that a thread has come and waits until the gate is open.
  void Pass();
  void Open();
  // Waits until a thread stands, or has stood, at the gate; false after 10 s.
  [[nodiscard]] bool SomebodyCame();

 private:
  const HANDLE m_open;
  const HANDLE m_came;
};

}  // namespace kova::test
