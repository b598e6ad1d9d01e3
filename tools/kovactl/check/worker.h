// The process that runs the extension: started and watched by the one that
// checks it, and what it does itself.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "check/step_list.h"
#include "check/worker_state.h"

namespace kova::ctl::check {

// What is to be checked, and how.
struct CheckOptions {
  std::wstring library;                    // a full path
  std::string printer = "Demo Printer";    // UTF-8
  std::vector<std::wstring> requestFiles;  // full paths, at most
                                           // kMostOwnRequests
  uint32_t requests = 1000;
  uint32_t threads = 8;
  uint32_t timeoutSeconds = 10;  // for each call into the extension
  uint32_t budgetSeconds = 60;   // for the whole check
  StepSet only = ~StepSet{0};    // the steps that load are done anyway
  // After so many crashes and hangs the rest is not tried.
  uint32_t mostDeaths = 3;
  std::wstring program;  // the full path of kovactl.exe
};

// How a worker ended.
struct WorkerEnd {
  enum class Kind {
    kFinished,
    kCrashed,
    kHung,
    kEndedItself,
    kEndedThread,  // the extension ended the thread that called it
    kOutOfTime,
    kNotStarted
  };
  Kind kind = Kind::kFinished;
  // Where the extension was; for kEndedItself the first thread's place.
  Callee callee = Callee::kNone;
  CrashRecord crash{};     // for kCrashed
  unsigned long code = 0;  // the exit code, or the error for kNotStarted
};

// Called now and then while a worker runs, with the messages that it sent since
// the last time, one JSON object each.
using WorkerMessages = std::function<void(const std::vector<std::string>&)>;

// Starts a worker, with `firstStep` as the first step that hands over a
// request, and waits for its end. Ends it when a call takes too long, and soon
// after `deadlineMs` (of GetTickCount64). A worker does not outlive this
// process.
WorkerEnd RunWorkerProcess(const CheckOptions& options, size_t firstStep,
                           uint64_t deadlineMs,
                           const WorkerMessages& onMessages);

// Does the steps of the task that lies behind the inherited handle, and reports
// them. False if nothing of the kind lies there. The process should end after
// that; its end is a step, too.
bool RunWorker(uint64_t stateHandle);

}  // namespace kova::ctl::check
