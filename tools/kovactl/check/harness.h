// What an extension is tried in: what the steps of a check work with, in the
// process that runs it.
#pragma once

#include <string>

#include "check/extension.h"
#include "check/reporter.h"
#include "check/worker_state.h"

namespace kova::ctl::check {

struct Harness {
  WorkerState& state;
  Reporter& reporter;
  Extension extension;
  // The bytes of --request; empty without it.
  std::string ownRequest;

  [[nodiscard]] std::string Printer() const { return state.task.printer; }
};

// One step: does it and tells the reporter its end. False if no later step
// makes sense.
using StepBody = bool(Harness& harness);

// The five steps that load the library.
StepBody LoadLibraryStep, ExportsStep, VersionsStep, RestartRoutineStep,
    InitializeStep;

// The steps that hand requests over one by one.
StepBody SmallStep, BareStep, HeadStep, FormStep, BinaryStep, LargeStep,
    LongTargetStep, BodilessStep, KeepOpenStep, MalformedStep, UnfetchedStep,
    BareAddressStep, OwnStep;

StepBody ThreadsStep, MemoryStep;

// How often the extension has called the restart routine.
uint32_t RestartCalls();

}  // namespace kova::ctl::check
