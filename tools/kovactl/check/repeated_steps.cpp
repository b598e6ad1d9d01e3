// The steps that hand over the same requests again and again: on many threads
// at once, and over a long time.
#include <algorithm>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "check/connection_thread.h"
#include "check/exchange.h"
#include "check/expected_answer.h"
#include "check/harness.h"
#include "check/holdings.h"

namespace kova::ctl::check {
namespace {

// One thread's requests, each with what it is answered with alone.
class Share {
 public:
  Share(Harness& harness, Exchange& alone, size_t thread)
      : m_harness(harness),
        m_thread(thread),
        m_requests(harness.LoadRequests(thread)) {
    for (const Request& request : m_requests) {
      m_expected.emplace_back(alone, request);
    }
  }

  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;

  // Hands each request over once. What may be wrong is kept, for Judge.
  void Ask(Exchange& exchange) {
    for (size_t i = 0; i < m_requests.size(); ++i) {
      Answer answer = exchange.Send(m_requests[i]);
      if (HoldsOtherMark(answer.bytes, m_requests[i].bytes)) {
        m_harness.reporter.Report({Flaw::kMixedAnswers, Callee::kCopy, ""});
      } else if (!m_expected[i].Matches(answer) && m_doubtful.size() < 16) {
        m_doubtful.emplace_back(i, std::move(answer));
      }
    }
  }

  // While nobody else asks.
  void Judge(Exchange& alone) {
    for (auto& [i, answer] : m_doubtful) {
      if (!m_expected[i].IsWrong(alone, answer)) {
        alone.Judge(m_requests[i], answer);
        continue;
      }
      m_harness.reporter.Report({Flaw::kDifferingAnswers, Callee::kCopy,
                                 Difference(m_requests[i], answer)});
    }
    m_doubtful.clear();
  }

  [[nodiscard]] size_t Thread() const { return m_thread; }
  [[nodiscard]] uint32_t Size() const {
    return static_cast<uint32_t>(m_requests.size());
  }

 private:
  static std::string Difference(const Request& request, const Answer& answer) {
    return request.bytes.substr(0, request.bytes.find(' ')) + " was answered " +
           "otherwise now and then, once with " +
           std::to_string(answer.bytes.size()) + " bytes";
  }

  Harness& m_harness;
  const size_t m_thread;
  const Requests m_requests;
  std::deque<ExpectedAnswer> m_expected;
  std::vector<std::pair<size_t, Answer>> m_doubtful;
};

// Does something `count` times.
using Work = std::function<void(uint32_t count)>;

Holdings GrowthOver(const Work& work, uint32_t count) {
  Holdings growth = CountHoldings();
  work(count);
  const Holdings after = CountHoldings();
  for (size_t i = 0; i < kHoldingKinds; ++i) growth[i] = after[i] - growth[i];
  return growth;
}

bool AnySuspicious(const Holdings& growth, uint32_t count) {
  for (size_t i = 0; i < kHoldingKinds; ++i) {
    if (IsSuspicious(growth[i], count, kHoldings[i].limit)) return true;
  }
  return false;
}

// What the work leaves behind, each time it is done; nothing, or the first kind
// that grows, which explains the later ones.
struct Leak {
  std::optional<size_t> kind;
  std::string detail;
  int64_t privateBytes = 0;
};

// Looks at the first `kinds` of kHoldings.
Leak FindLeak(const Work& work, uint32_t count, size_t kinds = kHoldingKinds) {
  constexpr uint32_t kMostWarmUp = 200;
  work(std::min(count, kMostWarmUp));
  const Holdings first = GrowthOver(work, count);
  Leak leak{{}, {}, first.back()};
  if (!AnySuspicious(first, count)) return leak;
  const Holdings second = GrowthOver(work, count);
  for (size_t i = 0; i < kinds && !leak.kind; ++i) {
    if (!IsLeak(first[i], second[i], count, kHoldings[i].limit)) continue;
    leak.kind = i;
    leak.detail = HoldingText(i, first[i]) + " over " + std::to_string(count) +
                  " times, " + HoldingText(i, second[i]) +
                  " over as many again";
  }
  return leak;
}

std::string Note(const Harness& harness, const Leak& leak) {
  if (!harness.HasTime()) return "cut short; give it more with --budget";
  return leak.kind ? leak.detail : "nothing";
}

// The processor time that this process has used.
double ProcessorMs() {
  FILETIME created{};
  FILETIME ended{};
  FILETIME kernel{};
  FILETIME user{};
  ::GetProcessTimes(::GetCurrentProcess(), &created, &ended, &kernel, &user);
  const auto milliseconds = [](const FILETIME& time) {
    constexpr double kPerMs = 10000;
    return static_cast<double>((uint64_t{time.dwHighDateTime} << 32U) |
                               time.dwLowDateTime) /
           kPerMs;
  };
  return milliseconds(kernel) + milliseconds(user);
}

// How long the threads ask; by default a second.
uint64_t LoadMs(const Task& task) { return task.budgetMs / 60; }

}  // namespace

bool ThreadsStep(Harness& harness) {
  const size_t count = harness.state.task.threads;
  Exchange alone(harness.state, 0, harness.extension, harness.reporter);
  std::deque<Share> shares;
  for (size_t i = 0; i < count; ++i) shares.emplace_back(harness, alone, i);
  // The atomic wait of this C++ library misses a wake-up now and then.
  const UniqueKernelHandle go(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const uint64_t endMs = ::GetTickCount64() + LoadMs(harness.state.task);
  {
    std::deque<ConnectionThread> threads;
    for (Share& share : shares) {
      // The main thread has number 0.
      const size_t number = share.Thread() + 1;
      threads.emplace_back(harness.state, number, [&, number] {
        Exchange exchange(harness.state, number, harness.extension,
                          harness.reporter);
        ::WaitForSingleObject(go.Get(), INFINITE);
        do {
          share.Ask(exchange);
        } while (::GetTickCount64() < endMs);
      });
    }
    ::SetEvent(go.Get());
  }
  for (Share& share : shares) share.Judge(alone);
  harness.reporter.EndStep(std::to_string(count) + " threads");
  return true;
}

bool MemoryStep(Harness& harness) {
  Exchange exchange(harness.state, 0, harness.extension, harness.reporter);
  Share share(harness, exchange, 0);
  const Leak leak = FindLeak(
      [&](uint32_t count) {
        for (uint32_t i = 0; i < count && harness.HasTime();
             i += share.Size()) {
          share.Ask(exchange);
        }
        share.Judge(exchange);
      },
      harness.state.task.requests);
  if (leak.kind) {
    harness.reporter.Report(
        {kHoldings[*leak.kind].flaw, Callee::kNone, leak.detail});
  }
  harness.reporter.Send({{"privateBytesGrowth", leak.privateBytes}});
  harness.reporter.EndStep(Note(harness, leak));
  return true;
}

// The server releases a response unfetched if its length or its copy fails.
bool UnfetchedStep(Harness& harness) {
  Exchange exchange(harness.state, 0, harness.extension, harness.reporter);
  const Request request = SmallRequests(harness.Printer()).front();
  const Leak leak = FindLeak(
      [&](uint32_t count) {
        for (uint32_t i = 0; i < count && harness.HasTime(); ++i) {
          exchange.SendAndRelease(request);
        }
      },
      std::min<uint32_t>(harness.state.task.requests, 200));
  if (leak.kind) {
    harness.reporter.Report(
        {Flaw::kUnfetchedGrowth, Callee::kRelease, leak.detail});
  }
  harness.reporter.EndStep(Note(harness, leak));
  return true;
}

bool ConnectionsStep(Harness& harness) {
  const Request request = SmallRequests(harness.Printer()).front();
  const Leak leak = FindLeak(
      [&](uint32_t count) {
        for (uint32_t i = 0; i < count && harness.HasTime(); ++i) {
          const ConnectionThread thread(harness.state, 1, [&] {
            Exchange exchange(harness.state, 1, harness.extension,
                              harness.reporter);
            (void)exchange.Send(request);
          });
        }
      },
      std::min<uint32_t>(harness.state.task.requests / 10, 100),
      // The system's own memory for threads comes and goes.
      kHoldingKinds - 1);
  if (leak.kind) {
    harness.reporter.Report(
        {Flaw::kConnectionGrowth, Callee::kNone, leak.detail});
  }
  harness.reporter.EndStep(Note(harness, leak));
  return true;
}

// What runs while nobody asks.
bool IdleStep(Harness& harness) {
  constexpr double kBusyShare = 0.1;
  const DWORD quietMs = std::max<DWORD>(harness.state.task.budgetMs / 150, 100);
  const double before = ProcessorMs();
  ::Sleep(quietMs);
  const double usedMs = ProcessorMs() - before;
  const std::string note = std::to_string(static_cast<int>(usedMs)) +
                           " ms of processor time in " +
                           std::to_string(quietMs) + " ms";
  if (usedMs > kBusyShare * quietMs) {
    harness.reporter.Report({Flaw::kBusyThread, Callee::kOwnThread, note});
  }
  harness.reporter.EndStep(note);
  return true;
}

}  // namespace kova::ctl::check
