#include "test/schedules/scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace kova::test {
namespace {

constexpr SIZE_T kStackBytes = 0x40000;

}  // namespace

struct Scheduler::Stack {
  Stack()
      : fiber(::CreateFiberEx(kStackBytes, kStackBytes, 0, &FiberMain, this)) {
    if (fiber == nullptr) std::abort();
  }
  ~Stack() { ::DeleteFiber(fiber); }
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;

  void* const fiber;
  Thread* thread = nullptr;  // weak; who runs on it
  CONTEXT beginning = {};
  uint64_t uses = 0;
};

Scheduler::Scheduler() : m_outside(::ConvertThreadToFiber(nullptr)) {}

Scheduler::~Scheduler() {
  DropStacks();
  ::ConvertFiberToThread();
}

Scheduler::Ending Scheduler::Run(std::function<void()> host, Chooser& chooser) {
  m_threads.clear();
  m_stacksInUse = 0;
  m_chooser = &chooser;
  m_ending = Ending::kAllEnded;
  m_nowMs += kBetweenRunsMs;
  m_stalls.clear();
  m_kills = 0;
  m_turn = 0;
  m_steps.clear();
  m_crash.clear();
  m_current = Begin("host", std::move(host), false);
  ::SwitchToFiber(Of(m_current).stack->fiber);
  m_current = kNoThread;
  m_chooser = nullptr;
  return m_ending;
}

void Scheduler::DropStacks() {
  m_threads.clear();
  m_stacks.clear();
}

Scheduler::Stack* Scheduler::TakeStack(Thread* thread) {
  if (m_stacksInUse == m_stacks.size()) {
    m_stacks.push_back(std::make_unique<Stack>());
  }
  Stack* const stack = m_stacks[m_stacksInUse++].get();
  stack->thread = thread;
  ++stack->uses;
  return stack;
}

ThreadId Scheduler::Begin(std::string name, std::function<void()> body,
                          bool isServers, bool isSuspended) {
  auto& thread = *m_threads.emplace_back(std::make_unique<Thread>(
      Thread{this, static_cast<ThreadId>(m_threads.size()), std::move(name),
             std::move(body), isServers, isSuspended}));
  thread.lastTurn = m_turn;
  thread.stack = TakeStack(&thread);
  return thread.id;
}

void Scheduler::Note(const char* what) {
  if (m_current != kNoThread) Of(m_current).at = what;
}

void Scheduler::Point(const char* what, Move move) {
  Note(what);
  if (m_current != kNoThread) Reschedule(move);
}

bool Scheduler::Await(const char* what, const Ready& ready,
                      uint64_t timeoutMs) {
  if (m_current == kNoThread) return ready();
  Thread& self = Of(m_current);
  if (what != nullptr) self.at = what;
  self.ready = &ready;
  self.deadlineMs = timeoutMs == kNever ? kNever : m_nowMs + timeoutMs;
  Reschedule(Move::kAny);
  self.ready = nullptr;
  return ready();
}

void Scheduler::Exit() {
  Thread& self = Of(m_current);
  self.hasEnded = true;
  self.at = "its end";
  Reschedule(Move::kAny);
  std::abort();  // a thread that has ended is not resumed
}

void Scheduler::Kill(ThreadId thread) {
  if (!std::exchange(Of(thread).hasEnded, true)) ++m_kills;
}

bool Scheduler::AllOthersEnded() const {
  return std::ranges::all_of(m_threads, [this](const auto& thread) {
    return thread->hasEnded || thread->id == m_current;
  });
}

std::string Scheduler::Standing() const {
  std::string text;
  for (const auto& thread : m_threads) {
    if (thread->hasEnded) continue;
    text += "  " + std::to_string(thread->id) + " " + thread->name +
            " stands at " + thread->at + "\n";
  }
  return text;
}

void Scheduler::Reschedule(Move move) {
  const DWORD lastError = ::GetLastError();
  m_steps.push_back({m_current, Of(m_current).at});
  if (m_steps.size() > kMostSteps) Leave(Ending::kLivelock);
  const ThreadId next = Pick(move);
  if (next == kNoThread) {
    Leave(AllOthersEnded() && Of(m_current).hasEnded ? Ending::kAllEnded
                                                     : Ending::kDeadlock);
  }
  if (next != m_current) SwitchTo(next);
  ::SetLastError(lastError);
}

void Scheduler::SwitchTo(ThreadId next) {
  Stack* const own = Of(m_current).stack;
  const uint64_t uses = own->uses;
  Of(next).lastTurn = ++m_turn;
  m_current = next;
  ::SwitchToFiber(Of(next).stack->fiber);
  // Somebody else's stack by now: what is on it is forgotten.
  if (own->uses != uses) ::RtlRestoreContext(&own->beginning, nullptr);
}

void Scheduler::Leave(Ending ending) {
  Stack* const own = Of(m_current).stack;
  m_ending = ending;
  m_current = kNoThread;
  ::SwitchToFiber(m_outside);
  ::RtlRestoreContext(&own->beginning, nullptr);
}

ThreadId Scheduler::Pick(Move move) {
  for (;;) {
    GatherOptions(move);
    if (m_options.empty()) {
      if (!PassTime()) return kNoThread;
      continue;
    }
    const bool isChoice = m_options.size() > 1 && m_chooser != nullptr;
    const Option chosen =
        m_options[isChoice ? m_chooser->Choose(m_options, m_current,
                                               Of(m_current).at)
                           : 0];
    if (!chosen.stalls) return chosen.thread;
    Thread& stalled = Of(chosen.thread);
    stalled.stalledUntilMs = m_nowMs + kStallMs;
    m_stalls.push_back({stalled.id, stalled.at});
  }
}

// The running thread, if it can go on, then those that have waited longest.
void Scheduler::GatherOptions(Move move) {
  m_options.clear();
  const Thread& self = Of(m_current);
  const bool goesOn = IsEnabled(self);
  if (goesOn) m_options.push_back({self.id, false});
  if (!goesOn || move != Move::kStallOnly) {
    for (const auto& thread : m_threads) {
      if (thread->id == self.id || !IsEnabled(*thread)) continue;
      m_options.push_back({thread->id, false});
    }
    std::ranges::sort(m_options.begin() + (goesOn ? 1 : 0), m_options.end(), {},
                      [this](const Option& option) {
                        return std::pair(Of(option.thread).lastTurn,
                                         option.thread);
                      });
  }
  if (goesOn && self.isServers && move != Move::kSwitchOnly) {
    m_options.push_back({self.id, true});
  }
}

bool Scheduler::IsEnabled(const Thread& thread) const {
  if (thread.hasEnded || thread.isSuspended) return false;
  if (thread.stalledUntilMs > m_nowMs) return false;
  return thread.ready == nullptr || thread.deadlineMs <= m_nowMs ||
         (*thread.ready)();
}

// To the next moment at which a thread may go on; false if there is none.
bool Scheduler::PassTime() {
  uint64_t nextMs = kNever;
  for (const auto& thread : m_threads) {
    if (thread->hasEnded || thread->isSuspended) continue;
    if (thread->stalledUntilMs > m_nowMs) {
      nextMs = std::min(nextMs, thread->stalledUntilMs);
    } else if (thread->ready != nullptr) {
      nextMs = std::min(nextMs, thread->deadlineMs);
    }
  }
  if (nextMs == kNever) return false;
  m_nowMs = nextMs;
  return true;
}

void WINAPI Scheduler::FiberMain(void* argument) {
  auto* const stack = static_cast<Stack*>(argument);
  ::RtlCaptureContext(&stack->beginning);
  RunBody(stack->thread);
  Scheduler& scheduler = *stack->thread->scheduler;
  if (!scheduler.m_crash.empty()) scheduler.Leave(Ending::kCrash);
  scheduler.Exit();
}

// No object with a destructor may live in this function.
void Scheduler::RunBody(Thread* thread) {
  __try {
    thread->body();
  } __except (NoteCrash(thread, GetExceptionInformation())) {
  }
}

long Scheduler::NoteCrash(Thread* thread, EXCEPTION_POINTERS* exception) {
  char text[200];
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  std::snprintf(text, sizeof(text),
                "exception %08lX at %p in thread %d (%s), at %s",
                record.ExceptionCode, record.ExceptionAddress, thread->id,
                thread->name.c_str(), thread->at);
  thread->scheduler->m_crash = text;
  return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace kova::test
