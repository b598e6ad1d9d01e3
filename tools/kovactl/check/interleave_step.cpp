// The step that hands two requests over at a time, in every order that their
// calls can have.
#include <bit>
#include <condition_variable>
#include <mutex>
#include <string_view>

#include "check/connection_thread.h"
#include "check/exchange.h"
#include "check/expected_answer.h"
#include "check/harness.h"

namespace kova::ctl::check {
namespace {

constexpr int kCalls = 4;  // of one request

// A request whose calls are made on a thread of its own, each when it is told
// to: what an extension keeps for a thread is no fault.
class SteppedExchange {
 public:
  SteppedExchange(Harness& harness, size_t thread)
      : m_exchange(harness.state, thread, harness.extension, harness.reporter),
        m_thread(harness.state, thread, [this] { Obey(); }) {}
  ~SteppedExchange() {
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
  }

  SteppedExchange(const SteppedExchange&) = delete;
  SteppedExchange& operator=(const SteppedExchange&) = delete;

  // Not while a call is under way.
  void Begin(const Request& request) { m_exchange.Begin(request); }
  Answer End() { return m_exchange.End(); }

  // Has the next call made, and waits for its end for `patienceMs`. False if it
  // has not returned by then.
  bool Next(DWORD patienceMs) {
    std::unique_lock lock(m_mutex);
    ++m_ordered;
    m_changed.notify_all();
    return m_changed.wait_for(lock, std::chrono::milliseconds(patienceMs),
                              [this] { return m_made == m_ordered; });
  }

  // Waits for the end of the call that is under way.
  void Wait() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_made == m_ordered; });
  }

 private:
  void Obey() {
    std::unique_lock lock(m_mutex);
    while (true) {
      m_changed.wait(lock, [this] { return m_ended || m_made < m_ordered; });
      if (m_made == m_ordered) return;
      lock.unlock();
      (void)m_exchange.Next();
      lock.lock();
      ++m_made;
      m_changed.notify_all();
    }
  }

  Exchange m_exchange;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_ordered = 0;
  int m_made = 0;
  bool m_ended = false;
  ConnectionThread m_thread;  // after all that it uses
};

// An order of the calls of two requests: bit i says whose call the i-th is.
using Order = unsigned;
constexpr Order kOrderCount = 1U << (2 * kCalls);

bool IsOrder(Order order) { return std::popcount(order) == kCalls; }

std::string Described(Order order) {
  constexpr const char* kNames[] = {"Handle", "Length", "Copy", "Release"};
  int made[2] = {};
  std::string text = "with the calls in the order";
  for (int i = 0; i < 2 * kCalls; ++i) {
    const unsigned whose = (order >> static_cast<unsigned>(i)) & 1U;
    text += (i == 0 ? " " : ", ") + std::string(kNames[made[whose]++]) + " " +
            (whose == 0 ? "A" : "B");
  }
  return text;
}

// Two requests and what each is answered with alone.
class Pair {
 public:
  Pair(Harness& harness, Exchange& alone, const Request& a, const Request& b)
      : m_harness(harness),
        m_alone(alone),
        m_requests{a, b},
        m_expected{{alone, m_requests[0]}, {alone, m_requests[1]}},
        m_exchanges{{harness, 1}, {harness, 2}} {}

  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  // Makes the calls in this order and judges the answers. False if one request
  // waits for the other's end, which does no harm but makes orders impossible.
  bool Try(Order order) {
    for (int i = 0; i < 2; ++i) m_exchanges[i].Begin(m_requests[i]);
    const bool came = MakeCalls(order);
    for (size_t i = 0; i < 2; ++i) Judge(i, m_exchanges[i].End(), order);
    return came;
  }

 private:
  bool MakeCalls(Order order) {
    const DWORD patienceMs =
        std::min<DWORD>(m_harness.state.task.timeoutMs / 4, 1000);
    for (int i = 0; i < 2 * kCalls; ++i) {
      const unsigned whose = (order >> static_cast<unsigned>(i)) & 1U;
      if (m_exchanges[whose].Next(patienceMs)) continue;
      FinishBoth(1 - whose);
      return false;
    }
    return true;
  }

  // The one that can go on first; the other one's call ends when it does.
  void FinishBoth(unsigned first) {
    for (const unsigned whose : {first, 1 - first}) {
      for (int i = 0; i < kCalls; ++i) {
        m_exchanges[whose].Wait();
        (void)m_exchanges[whose].Next(INFINITE);
      }
    }
  }

  void Judge(size_t i, const Answer& answer, Order order) {
    const bool foreign = HoldsOtherMark(answer.bytes, m_requests[i].bytes);
    if (!foreign && !m_expected[i].IsWrong(m_alone, answer)) return;
    m_harness.reporter.Report(
        {foreign ? Flaw::kMixedAnswers : Flaw::kDifferingAnswers, Callee::kCopy,
         Described(order)});
  }

  Harness& m_harness;
  Exchange& m_alone;
  const Request m_requests[2];
  ExpectedAnswer m_expected[2];
  SteppedExchange m_exchanges[2];
};

// How many orders were tried; fewer if one request waits for the other.
int TryOrders(Harness& harness, const Request& a, const Request& b) {
  Exchange alone(harness.state, 0, harness.extension, harness.reporter);
  Pair pair(harness, alone, a, b);
  int tried = 0;
  for (Order order = 0; order < kOrderCount && harness.HasTime(); ++order) {
    if (!IsOrder(order)) continue;
    ++tried;
    // A busy machine may have been what took long, once.
    if (pair.Try(order) || pair.Try(order)) continue;
    harness.reporter.Report({Flaw::kWaitsForOther, Callee::kHandle, ""});
    break;
  }
  return tried;
}

}  // namespace

bool InterleaveStep(Harness& harness) {
  const Requests first = harness.LoadRequests(0);
  const Requests second = harness.LoadRequests(1);
  int tried = 0;
  for (size_t i = 0; i < std::min(first.size(), second.size()); ++i) {
    tried += TryOrders(harness, first[i], second[i]);
  }
  harness.reporter.EndStep(std::to_string(tried) + " orders");
  return true;
}

}  // namespace kova::ctl::check
