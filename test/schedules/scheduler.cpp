#include "test/schedules/scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace kova::test {
namespace {

constexpr SIZE_T kStackBytes = 0x40000;

}  // namespace

struct Scheduler::Thread {
  Scheduler* scheduler = nullptr;
  ThreadId id = kNoThread;
  std::string name;
  std::function<void()> body;
  Stack* stack = nullptr;  // weak
  const char* at = "its beginning";
  const Ready* ready = nullptr;  // set while it waits
  uint64_t deadlineMs = kNever;
  uint64_t stalledUntilMs = 0;
  uint64_t lastTurn = 0;
  bool mayStall = false;
  bool suspended = false;
  bool ended = false;
};

struct Scheduler::Stack {
  Stack() = default;
  ~Stack() { ::DeleteFiber(fiber); }
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;

  void* fiber = nullptr;
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
  Begin("host", std::move(host), false);
  m_current = 0;
  ::SwitchToFiber(m_threads[0]->stack->fiber);
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
    Stack* const fresh = m_stacks.back().get();
    fresh->fiber =
        ::CreateFiberEx(kStackBytes, kStackBytes, 0, &FiberMain, fresh);
    if (fresh->fiber == nullptr) std::abort();
  }
  Stack* const stack = m_stacks[m_stacksInUse++].get();
  stack->thread = thread;
  ++stack->uses;
  return stack;
}

ThreadId Scheduler::Begin(std::string name, std::function<void()> body,
                          bool mayStall, bool suspended) {
  auto thread = std::make_unique<Thread>();
  thread->scheduler = this;
  thread->id = static_cast<ThreadId>(m_threads.size());
  thread->name = std::move(name);
  thread->body = std::move(body);
  thread->mayStall = mayStall;
  thread->suspended = suspended;
  thread->lastTurn = m_turn;
  thread->stack = TakeStack(thread.get());
  m_threads.push_back(std::move(thread));
  return m_threads.back()->id;
}

void Scheduler::Resume(ThreadId thread) {
  m_threads[static_cast<size_t>(thread)]->suspended = false;
}

void Scheduler::Point(const char* what, Move move) {
  if (m_current == kNoThread) return;
  m_threads[static_cast<size_t>(m_current)]->at = what;
  Reschedule(move);
}

void Scheduler::PointOfClosing(const char* what,
                               const std::function<void()>& close) {
  Point(what, Move::kSwitchOnly);
  close();
  Point(what, Move::kStallOnly);
}

bool Scheduler::Await(const char* what, const Ready& ready,
                      uint64_t timeoutMs) {
  if (m_current == kNoThread) return ready();
  Thread& self = *m_threads[static_cast<size_t>(m_current)];
  self.at = what;
  self.ready = &ready;
  self.deadlineMs = timeoutMs == kNever ? kNever : m_nowMs + timeoutMs;
  Reschedule(Move::kAny);
  self.ready = nullptr;
  return ready();
}

void Scheduler::Exit() {
  Thread& self = *m_threads[static_cast<size_t>(m_current)];
  self.ended = true;
  self.at = "its end";
  Reschedule(Move::kAny);
  std::abort();  // a thread that has ended is not resumed
}

void Scheduler::Kill(ThreadId thread) {
  Thread& victim = *m_threads[static_cast<size_t>(thread)];
  if (victim.ended) return;
  victim.ended = true;
  ++m_kills;
}

bool Scheduler::HasEnded(ThreadId thread) const {
  return m_threads[static_cast<size_t>(thread)]->ended;
}

std::vector<ThreadId> Scheduler::LivingServerThreads() const {
  std::vector<ThreadId> living;
  for (const auto& thread : m_threads) {
    if (thread->mayStall && !thread->ended) living.push_back(thread->id);
  }
  return living;
}

std::vector<ThreadId> Scheduler::ThreadsNamed(std::string_view name) const {
  std::vector<ThreadId> named;
  for (const auto& thread : m_threads) {
    if (thread->name == name) named.push_back(thread->id);
  }
  return named;
}

bool Scheduler::AllOthersEnded() const {
  return std::ranges::all_of(m_threads, [this](const auto& thread) {
    return thread->ended || thread->id == m_current;
  });
}

const std::string& Scheduler::NameOf(ThreadId thread) const {
  return m_threads[static_cast<size_t>(thread)]->name;
}

bool Scheduler::StandsAt(ThreadId thread, std::string_view what) const {
  return m_threads[static_cast<size_t>(thread)]->at == what;
}

std::string Scheduler::Standing() const {
  std::string text;
  for (const auto& thread : m_threads) {
    if (thread->ended) continue;
    text += "  " + std::to_string(thread->id) + " " + thread->name +
            " stands at " + thread->at + "\n";
  }
  return text;
}

void Scheduler::Reschedule(Move move) {
  const DWORD lastError = ::GetLastError();
  m_steps.push_back({m_current, m_threads[static_cast<size_t>(m_current)]->at});
  if (m_steps.size() > kMostSteps) Leave(Ending::kLivelock);
  const ThreadId next = Pick(move);
  if (next == kNoThread) {
    const bool allEnded = std::ranges::all_of(
        m_threads, [](const auto& thread) { return thread->ended; });
    Leave(allEnded ? Ending::kAllEnded : Ending::kDeadlock);
  }
  if (next != m_current) SwitchTo(next);
  ::SetLastError(lastError);
}

void Scheduler::SwitchTo(ThreadId next) {
  Stack* const own = m_threads[static_cast<size_t>(m_current)]->stack;
  const uint64_t uses = own->uses;
  Thread& thread = *m_threads[static_cast<size_t>(next)];
  thread.lastTurn = ++m_turn;
  m_current = next;
  ::SwitchToFiber(thread.stack->fiber);
  // Somebody else's stack by now: what is on it is forgotten.
  if (own->uses != uses) ::RtlRestoreContext(&own->beginning, nullptr);
}

void Scheduler::Leave(Ending ending) {
  Stack* const own = m_threads[static_cast<size_t>(m_current)]->stack;
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
    const Option chosen = m_options[ChooseOne()];
    if (!chosen.stalls) return chosen.thread;
    Thread& stalled = *m_threads[static_cast<size_t>(chosen.thread)];
    stalled.stalledUntilMs = m_nowMs + kStallMs;
    m_stalls.push_back({stalled.id, stalled.at});
  }
}

void Scheduler::GatherOptions(Move move) {
  m_options.clear();
  const Thread& self = *m_threads[static_cast<size_t>(m_current)];
  const bool goesOn = IsEnabled(self);
  if (goesOn) m_options.push_back({self.id, false});
  if (!goesOn || move != Move::kStallOnly) {
    for (const auto& thread : m_threads) {
      if (thread->id == self.id || !IsEnabled(*thread)) continue;
      m_options.push_back({thread->id, false});
    }
    std::sort(m_options.begin() + (goesOn ? 1 : 0), m_options.end(),
              [this](const Option& a, const Option& b) {
                return TurnOf(a.thread) < TurnOf(b.thread);
              });
  }
  if (goesOn && self.mayStall && move != Move::kSwitchOnly)
    m_options.push_back({self.id, true});
}

// Who has waited longest comes first.
std::pair<uint64_t, ThreadId> Scheduler::TurnOf(ThreadId thread) const {
  return {m_threads[static_cast<size_t>(thread)]->lastTurn, thread};
}

size_t Scheduler::ChooseOne() {
  if (m_options.size() < 2 || m_chooser == nullptr) return 0;
  const Thread& self = *m_threads[static_cast<size_t>(m_current)];
  return m_chooser->Choose(m_options, m_options[0].thread != m_current,
                           m_current, self.at);
}

bool Scheduler::IsEnabled(const Thread& thread) const {
  if (thread.ended || thread.suspended) return false;
  if (thread.stalledUntilMs > m_nowMs) return false;
  return thread.ready == nullptr || thread.deadlineMs <= m_nowMs ||
         (*thread.ready)();
}

// To the next moment at which a thread may go on; false if there is none.
bool Scheduler::PassTime() {
  uint64_t nextMs = kNever;
  for (const auto& thread : m_threads) {
    if (thread->ended || thread->suspended) continue;
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
