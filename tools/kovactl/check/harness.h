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
  // The bytes of --request; empty without it.
  std::string ownRequest;

  [[nodiscard]] std::string Printer() const { return state.task.printer; }
  [[nodiscard]] Request OwnRequest(Owes owes) const {
    return {ownRequest, owes, ownRequest.starts_with("HEAD ")};
  }
};

// One step: does it and tells the reporter its end. False if no later step
// makes sense.
using StepBody = bool(Harness& harness);

// The five steps that load the library.
StepBody LoadLibraryStep, ExportsStep, VersionsStep, RestartRoutineStep,
    InitializeStep;

// The steps that hand requests over one by one.
StepBody SmallStep, KeepOpenStep, UnfetchedStep, OwnStep;
// Hands `requests` over one after the other, each on a connection of its own,
// and ends the step.
bool SendEach(Harness& harness, const Requests& requests);
template <Requests (*kMake)(const std::string& printer)>
bool SendStep(Harness& harness) {
  return SendEach(harness, kMake(harness.Printer()));
}

// The steps that hand the same requests over again and again.
StepBody ThreadsStep, MemoryStep;

// How often the extension has called the restart routine.
uint32_t RestartCalls();

}  // namespace kova::ctl::check
