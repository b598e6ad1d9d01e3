#include "check/worker.h"

#include <iterator>

#include "check/extension_call.h"
#include "check/guarded_area.h"
#include "check/harness.h"
#include "check/library_file.h"
#include "check/step_list.h"

namespace kova::ctl::check {
namespace {

// In the order of kSteps; the end of the process is the last step.
constexpr StepBody* kBodies[] = {
    &LoadLibraryStep, &ExportsStep,  &VersionsStep,  &RestartRoutineStep,
    &InitializeStep,  &SmallStep,    &BareStep,      &HeadStep,
    &FormStep,        &BinaryStep,   &LargeStep,     &LongTargetStep,
    &BodilessStep,    &KeepOpenStep, &MalformedStep, &UnfetchedStep,
    &BareAddressStep, &OwnStep,      &ThreadsStep,   &MemoryStep,
};
static_assert(std::size(kBodies) == kEndStep);

// A worker that takes over from one that ended loads the library again, and
// goes on where the other one did not.
void RunSteps(Harness& harness) {
  const size_t first = harness.state.task.firstStep;
  for (size_t step = 0; step < kEndStep; ++step) {
    if (step >= kFirstRequestStep && step < first) continue;
    harness.reporter.BeginStep(step);
    const bool goOn = kBodies[step](harness);
    harness.reporter.Send({{"restartCalls", RestartCalls()}});
    if (!goOn) return;
  }
  harness.reporter.BeginStep(kEndStep);
}

}  // namespace

bool RunWorker(uint64_t stateHandle) {
  // Never destroyed: the memory is read and written until the process ends.
  static auto* const shared = new SharedWorkerState;
  if (!shared->Open(reinterpret_cast<HANDLE>(stateHandle))) return false;
  WorkerState& state = shared->Get();
  RecordUnhandled(state);
  GuardedArea::StartWatching();
  // The extension's own children must not keep the pipe open.
  ::SetHandleInformation(state.task.messages, HANDLE_FLAG_INHERIT, 0);
  Reporter reporter(state.task.messages);
  Harness harness{state, reporter, {}, {}};
  if (state.task.requestFile[0] != L'\0') {
    harness.ownRequest = ReadWholeFile(state.task.requestFile);
  }
  RunSteps(harness);
  state.calls[0].sinceMs = ::GetTickCount64();
  state.calls[0].callee = Callee::kEnd;
  return true;
}

}  // namespace kova::ctl::check
