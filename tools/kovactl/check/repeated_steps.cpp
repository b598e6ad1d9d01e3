// The steps that hand over the same requests again and again: on many threads
// at once, and over a long time.
#include <algorithm>
#include <deque>
#include <mutex>
#include <vector>

#include "check/connection_thread.h"
#include "check/exchange.h"
#include "check/expected_answer.h"
#include "check/harness.h"
#include "check/memory_growth.h"
// After the rest of Windows.
#include <psapi.h>

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

// Two fields are documented to hold the same number; older systems leave the
// one at 0, Wine the other.
int64_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  counters.cb = sizeof(counters);
  ::GetProcessMemoryInfo(::GetCurrentProcess(),
                         reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof(counters));
  return static_cast<int64_t>(
      std::max(counters.PrivateUsage, counters.PagefileUsage));
}

// Hands the share's requests over, `count` in all; by how much memory grew.
int64_t GrowthOver(Exchange& exchange, Share& share, uint32_t count) {
  const int64_t before = PrivateBytes();
  for (uint32_t i = 0; i < count; i += share.Size()) share.Ask(exchange);
  const int64_t growth = PrivateBytes() - before;
  share.Judge(exchange);
  return growth;
}

std::string Kilobytes(int64_t bytes) {
  return std::to_string(bytes / 1024) + " KiB";
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
  constexpr uint32_t kMostWarmUp = 200;
  const uint32_t count = harness.state.task.requests;
  Exchange exchange(harness.state, 0, harness.extension, harness.reporter);
  Share share(harness, exchange, 0);
  (void)GrowthOver(exchange, share, std::min(count, kMostWarmUp));
  const int64_t first = GrowthOver(exchange, share, count);
  std::string note = Kilobytes(std::max<int64_t>(first, 0)) + " more";
  if (IsSuspicious(first, count)) {
    const int64_t second = GrowthOver(exchange, share, count);
    if (IsLeak(first, second, count)) {
      harness.reporter.Report({Flaw::kMemoryGrowth, Callee::kNone,
                               Kilobytes(first) + " over " +
                                   std::to_string(count) + " requests, " +
                                   Kilobytes(second) + " over as many again"});
    }
    note += ", then " + Kilobytes(std::max<int64_t>(second, 0));
  }
  harness.reporter.Send({{"privateBytesGrowth", first}});
  harness.reporter.EndStep(note);
  return true;
}

}  // namespace kova::ctl::check
