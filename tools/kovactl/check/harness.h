// What the steps of a check work with, in the process that runs the extension.
#pragma once

#include <string>

#include "check/extension.h"
#include "check/reporter.h"
#include "check/request_set.h"
#include "check/worker_state.h"

namespace kova::ctl::check {

struct Harness {
  WorkerState& state;
  Reporter& reporter;
  Extension extension;
  // Those of --request; empty without it.
  Requests ownRequests;

  [[nodiscard]] std::string Printer() const { return state.task.printer; }
  // What thread `thread` asks under load: the user's requests, or two of its
  // own.
  [[nodiscard]] Requests LoadRequests(size_t thread) const {
    return ownRequests.empty() ? ThreadRequests(Printer(), thread)
                               : ownRequests;
  }
  // Whether the check may go on for longer.
  [[nodiscard]] bool HasTime() const {
    return ::GetTickCount64() < state.task.deadlineMs;
  }
};

// One step: does it and tells the reporter how it ended. False if no later step
// makes sense. Runs on a thread of its own, as a connection's calls do.
using StepBody = bool(Harness& harness);

// The five steps that load the library.
StepBody LoadLibraryStep, ExportsStep, VersionsStep, RestartRoutineStep,
    InitializeStep;

// The steps that hand requests over one by one.
StepBody SmallStep, KeepOpenStep, MeasuredTwiceStep, OwnStep;
// Hands `requests` over one after the other, each on a connection of its own,
// and ends the step.
bool SendEach(Harness& harness, const Requests& requests);
template <Requests (*kMake)(const std::string& printer)>
bool SendStep(Harness& harness) {
  return SendEach(harness, kMake(harness.Printer()));
}

// The steps that hand the same requests over again and again.
StepBody InterleaveStep, ThreadsStep, MemoryStep, UnfetchedStep,
    ConnectionsStep, IdleStep;

// How often the extension has called the restart routine.
uint32_t RestartCalls();

}  // namespace kova::ctl::check
