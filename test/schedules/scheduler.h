// Runs threads one at a time, in an order that somebody chooses.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/windows_api.h"

namespace kova::test {

// Threads are numbered in the order of their beginning; the host's is 0.
using ThreadId = int;
inline constexpr ThreadId kNoThread = -1;
inline constexpr uint64_t kNever = ~uint64_t{0};

// One way in which a run may go on from a point of choice.
struct Option {
  ThreadId thread = kNoThread;
  // The thread, which could go on, is kept from running for kStallMs.
  bool stalls = false;
};

// Decides at each point at which there is more than one way.
class Chooser {
 public:
  virtual ~Chooser() = default;
  // An index into `options`, of which there are at least two. The first is what
  // happens unless somebody interferes: the running thread goes on, or, where
  // it cannot, the one that has waited longest. `current` is the thread that
  // comes to the point, `what` the call that it is about to make.
  virtual size_t Choose(const std::vector<Option>& options, ThreadId current,
                        const char* what) = 0;
};

// A machine with one processor, a clock of its own and threads that change
// only where they say so. All of them are fibers of one thread of the system,
// so a run is the same whenever the same choices are made, and a thread that is
// killed is just never resumed, as a thread of Windows that is terminated
// while it stands in a system call. Time passes only while no thread can run.
class Scheduler {
 public:
  using Ready = std::function<bool()>;

  // What may happen at a point: another thread may go on, the running one may
  // be stalled, or both.
  enum class Move { kAny, kSwitchOnly, kStallOnly };
  enum class Ending { kAllEnded, kDeadlock, kLivelock, kCrash };

  static constexpr uint64_t kStallMs = 20000;
  // The clock goes on from run to run, so that what the library remembers of
  // the time of an earlier run is as old in every run.
  static constexpr uint64_t kStartMs = 10000000;
  static constexpr uint64_t kBetweenRunsMs = 1000000;
  static constexpr size_t kMostSteps = 20000;

  struct Step {
    ThreadId thread;
    const char* what;
  };
  struct Stack;
  struct Thread {
    Scheduler* scheduler = nullptr;
    ThreadId id = kNoThread;
    std::string name;
    std::function<void()> body;
    bool isServers = false;  // one of the server's, which may be stalled
    bool isSuspended = false;
    const char* at = "its beginning";
    bool hasEnded = false;

    Stack* stack = nullptr;        // weak
    const Ready* ready = nullptr;  // set while it waits
    uint64_t deadlineMs = kNever;
    uint64_t stalledUntilMs = 0;
    uint64_t lastTurn = 0;
  };

  // The calling thread is the only one that may use the object.
  Scheduler();
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  // Runs `host` as thread 0, and all threads that come to be, until all have
  // ended or none can go on. Those left over are thrown away.
  Ending Run(std::function<void()> host, Chooser& chooser);

  // Frees the stacks, and with them what the library keeps for their threads;
  // before it is unloaded.
  void DropStacks();

  // The following are called by a running thread, if not said otherwise.

  ThreadId Begin(std::string name, std::function<void()> body, bool isServers,
                 bool isSuspended = false);
  void Resume(ThreadId thread) { Of(thread).isSuspended = false; }
  // The running thread makes a call that nobody else can notice. Outside a run,
  // does nothing, as Point() does.
  void Note(const char* what);
  // It is about to make a call that others can notice. Keeps the last error.
  void Point(const char* what, Move move = Move::kAny);
  // Waits until `ready` is true, or time has run out, and returns whether it
  // is. Outside a run, what `ready` says at once. Null for `what`: in the call
  // that was noted.
  bool Await(const char* what, const Ready& ready, uint64_t timeoutMs = kNever);
  // Ends the running thread where it stands.
  [[noreturn]] void Exit();
  // Ends another one where it stands.
  void Kill(ThreadId thread);
  // From now on the chooser is not asked.
  void TakeDefaults() { m_chooser = nullptr; }

  // May be asked at any time.

  [[nodiscard]] ThreadId Current() const { return m_current; }
  [[nodiscard]] const Thread& operator[](ThreadId thread) const {
    return *m_threads[static_cast<size_t>(thread)];
  }
  [[nodiscard]] const std::vector<std::unique_ptr<Thread>>& Threads() const {
    return m_threads;
  }
  [[nodiscard]] bool AllOthersEnded() const;
  [[nodiscard]] uint64_t NowMs() const { return m_nowMs; }
  // Who was stalled, and where, once each time.
  [[nodiscard]] const std::vector<Step>& Stalls() const { return m_stalls; }
  [[nodiscard]] int Kills() const { return m_kills; }
  [[nodiscard]] const std::vector<Step>& Steps() const { return m_steps; }
  // Where each thread that has not ended stands; what a crash was.
  [[nodiscard]] std::string Standing() const;
  [[nodiscard]] const std::string& CrashText() const { return m_crash; }

 private:
  static void WINAPI FiberMain(void* stack);
  static void RunBody(Thread* thread);
  static long NoteCrash(Thread* thread, EXCEPTION_POINTERS* exception);

  Thread& Of(ThreadId thread) {
    return *m_threads[static_cast<size_t>(thread)];
  }
  void Reschedule(Move move);
  ThreadId Pick(Move move);
  void GatherOptions(Move move);
  [[nodiscard]] bool IsEnabled(const Thread& thread) const;
  bool PassTime();
  void SwitchTo(ThreadId next);
  void Leave(Ending ending);
  Stack* TakeStack(Thread* thread);

  void* m_outside;  // the fiber that calls Run
  std::vector<std::unique_ptr<Thread>> m_threads;
  // Used again and again: threads that were killed or left in the middle of a
  // call are forgotten with what is on their stacks.
  std::vector<std::unique_ptr<Stack>> m_stacks;
  size_t m_stacksInUse = 0;
  std::vector<Option> m_options;
  std::vector<Step> m_steps;
  Chooser* m_chooser = nullptr;
  ThreadId m_current = kNoThread;
  Ending m_ending = Ending::kAllEnded;
  uint64_t m_nowMs = kStartMs;
  uint64_t m_turn = 0;
  std::vector<Step> m_stalls;
  int m_kills = 0;
  std::string m_crash;
};

}  // namespace kova::test
