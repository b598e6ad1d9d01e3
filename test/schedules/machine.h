// Everything that the library calls, as a model.
#pragma once

#include <algorithm>
#include <string>
#include <type_traits>
#include <vector>

#include "test/schedules/heap_watch.h"
#include "test/schedules/kernel_model.h"
#include "test/schedules/scheduler.h"
#include "test/schedules/system_model.h"
#include "test/schedules/winsock_model.h"

namespace kova::test {

// So much of something is in use.
struct Held {
  const char* what;
  size_t count;
};

// One computer with one process. At most one may live at a time; its parts and
// what stands in for the library's calls reach it through TheMachine().
class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // Something that must not happen has happened, in the running thread.
  void Complain(const std::string& text);
  [[nodiscard]] const std::vector<std::string>& Complaints() const {
    return m_complaints;
  }
  // Before a run: nothing has been complained of, no thread lives.
  void BeginRun();
  // As after a start of the computer.
  void Reset();
  // All that may be in use, always in the same order.
  [[nodiscard]] std::vector<Held> WhatIsHeld() const;

  // Has all calls of a loaded module answered by this machine. Returns the
  // names of its imports that would escape it.
  std::vector<std::string> Capture(HMODULE module);

  template <typename Model>
  Model& Part() {
    if constexpr (std::is_same_v<Model, KernelModel>) return kernel;
    if constexpr (std::is_same_v<Model, WinsockModel>) return winsock;
    if constexpr (std::is_same_v<Model, SystemModel>) return system;
    if constexpr (std::is_same_v<Model, HeapWatch>) return heap;
  }

  Scheduler scheduler;
  KernelModel kernel;
  WinsockModel winsock;
  SystemModel system;
  HeapWatch heap;

 private:
  std::vector<std::string> m_complaints;
};

[[nodiscard]] Machine& TheMachine();

// The name of a function, for a template.
template <size_t size>
struct CallName {
  constexpr CallName(const char (&name)[size]) {
    std::copy_n(name, size, text);
  }
  char text[size];
};

// What others can notice of a call: nothing, not even its name; nothing; that
// it is made; no more than that its thread is late; that it closes something.
enum class Notice { kNone, kName, kPoint, kLate, kClosing };

// The function that stands in for the import `name`: a method of one of the
// machine's parts, behind the point of choice.
template <CallName name, Notice notice, auto method>
struct Answer;
template <CallName name, Notice notice, typename Model, typename Result,
          typename... Arguments, Result (Model::*method)(Arguments...)>
struct Answer<name, notice, method> {
  static Result Call(Arguments... arguments) {
    Scheduler& scheduler = TheMachine().scheduler;
    if (notice == Notice::kName) scheduler.Note(name.text);
    if (notice == Notice::kPoint) scheduler.Point(name.text);
    if (notice == Notice::kLate) {
      scheduler.Point(name.text, Scheduler::Move::kStallOnly);
    }
    if constexpr (notice == Notice::kClosing) {
      // A thread that is killed in such a call has closed it: the system ends
      // what it has begun.
      scheduler.Point(name.text, Scheduler::Move::kSwitchOnly);
      const Result result = (TheMachine().Part<Model>().*method)(arguments...);
      scheduler.Point(name.text, Scheduler::Move::kStallOnly);
      return result;
    } else {
      return (TheMachine().Part<Model>().*method)(arguments...);
    }
  }
};

template <CallName name, auto method, Notice notice = Notice::kPoint>
Thunk At() {
  return By(name.text, &Answer<name, notice, method>::Call);
}
template <CallName name, auto method>
Thunk Silently() {
  return At<name, method, Notice::kNone>();
}

}  // namespace kova::test
