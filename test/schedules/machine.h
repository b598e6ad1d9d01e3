// Everything that the library calls, as a model.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kova/extension.h"
#include "test/schedules/heap_watch.h"
#include "test/schedules/kernel_model.h"
#include "test/schedules/lock_model.h"
#include "test/schedules/scheduler.h"
#include "test/schedules/system_model.h"
#include "test/schedules/winsock_model.h"

namespace kova::test {

// What is in use at one moment.
struct Held {
  size_t handles = 0;
  size_t sockets = 0;
  int sessions = 0;
  size_t locks = 0;  // critical sections
  int moduleReferences = 0;
  int keys = 0;  // of the registry
  int printers = 0;
  size_t blocks = 0;  // of memory
};

// One computer with one process. At most one may live at a time; the thunks
// reach it through TheMachine().
class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // Something that must not happen has happened.
  void Complain(const std::string& text);
  [[nodiscard]] const std::vector<std::string>& Complaints() const {
    return m_complaints;
  }
  // Before a run: nothing has been complained of, no thread lives.
  void BeginRun();
  // As after a start of the computer.
  void Reset();
  [[nodiscard]] Held WhatIsHeld() const;

  // Has all calls of a loaded module answered by this machine. Returns the
  // names of its imports that can wait and that no model knows.
  std::vector<std::string> Capture(HMODULE module);

  Scheduler scheduler;
  KernelModel kernel;
  LockModel locks;
  WinsockModel winsock;
  SystemModel system;
  HeapWatch heap;

 private:
  std::vector<std::string> m_complaints;
};

[[nodiscard]] Machine& TheMachine();

}  // namespace kova::test
