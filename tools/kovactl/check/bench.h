// What the steps of a check work on, in the process that runs the extension.
#pragma once

#include <string>

#include "check/board.h"
#include "check/extension.h"
#include "check/finding_sink.h"

namespace kova::ctl::check {

struct Bench {
  Board& board;
  FindingSink& sink;
  Extension extension;
  // The bytes of --request; empty without it.
  std::string ownRequest;

  [[nodiscard]] std::string Printer() const { return board.order.printer; }
};

// One step: does it and ends it at the bench's sink. False if no later step
// makes sense.
using StepBody = bool(Bench& bench);

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
