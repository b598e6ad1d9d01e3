#include "check/worker.h"

#include <iterator>

#include "check/bench.h"
#include "check/entry_call.h"
#include "check/guarded_area.h"
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
void RunSteps(Bench& bench) {
  const size_t first = bench.board.order.firstStep;
  for (size_t step = 0; step < kEndStep; ++step) {
    if (step >= kFirstRequestStep && step < first) continue;
    bench.sink.BeginStep(step);
    const bool goOn = kBodies[step](bench);
    bench.sink.Send({{"restartCalls", RestartCalls()}});
    if (!goOn) return;
  }
  bench.sink.BeginStep(kEndStep);
}

}  // namespace

bool RunWorker(uint64_t boardHandle) {
  // Never destroyed: the board is read and written until the process ends.
  static auto* const shared = new SharedBoard;
  if (!shared->Open(reinterpret_cast<HANDLE>(boardHandle))) return false;
  Board& board = shared->Get();
  RecordUnhandled(board);
  GuardedArea::StartWatching();
  // The extension's own children must not keep the pipe open.
  ::SetHandleInformation(board.order.messages, HANDLE_FLAG_INHERIT, 0);
  FindingSink sink(board.order.messages);
  Bench bench{board, sink, {}, {}};
  if (board.order.requestFile[0] != L'\0') {
    bench.ownRequest = ReadWholeFile(board.order.requestFile);
  }
  RunSteps(bench);
  board.slots[0].sinceMs = ::GetTickCount64();
  board.slots[0].entry = Entry::kEnd;
  return true;
}

}  // namespace kova::ctl::check
