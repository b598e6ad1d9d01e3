// The memory that the two processes of a check share: what is to be checked,
// and what the extension is doing at this moment. It stays readable after the
// process that runs the extension has ended, however that came about.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/handles.h"
#include "check/extension.h"

namespace kova::ctl::check {

inline constexpr size_t kMostThreads = 64;
inline constexpr size_t kMostOwnRequests = 16;

// What is to be checked. Written before the worker starts. Texts are
// zero-terminated.
struct Task {
  wchar_t library[1024];
  char printer[512];                             // UTF-8
  wchar_t requestFiles[kMostOwnRequests][1024];  // an empty one ends the list
  uint32_t requests;
  uint32_t threads;
  uint32_t firstStep;
  uint64_t only;  // a StepSet; the steps that load are done anyway
  uint32_t timeoutMs;
  uint32_t budgetMs;
  uint64_t deadlineMs;  // of GetTickCount64; no step begins after it
  HANDLE messages;      // weak; an inherited pipe's writing end
};

// What one thread is calling.
struct CallInProgress {
  std::atomic<Callee> callee;
  std::atomic<uint64_t> sinceMs;  // of GetTickCount64
  std::atomic<uint32_t> threadId;
};

// An exception that left the extension.
struct CrashRecord {
  uint32_t code;
  Callee callee;
  uint64_t offset;     // of the instruction in its module
  wchar_t module[64];  // the file's name, empty if in none
  bool isAccess;       // an access violation
  bool isWrite;
  uint64_t accessed;
};

struct WorkerState {
  Task task;
  CallInProgress calls[kMostThreads + 1];  // the main thread's first
  std::atomic<Callee> endedThread;         // what ended the thread it ran on
  std::atomic<bool> crashed;               // set after `crash` was written
  CrashRecord crash;
};

// Owns a view of the shared memory; the parent owns the section, too.
class SharedWorkerState {
 public:
  // Memory of zeroes whose handle a child process inherits.
  [[nodiscard]] bool Create();
  // The memory behind an inherited handle; false if there is none.
  [[nodiscard]] bool Open(HANDLE inherited);
  ~SharedWorkerState();

  SharedWorkerState() = default;
  SharedWorkerState(const SharedWorkerState&) = delete;
  SharedWorkerState& operator=(const SharedWorkerState&) = delete;

  [[nodiscard]] HANDLE Section() const { return m_section.Get(); }
  [[nodiscard]] WorkerState& Get() const { return *m_state; }

 private:
  [[nodiscard]] bool Map();

  UniqueKernelHandle m_section;
  WorkerState* m_state = nullptr;
};

}  // namespace kova::ctl::check
