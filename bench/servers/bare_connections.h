// The connections of the bare server: the thread, events, event masks and
// pieces that the product has for each, and nothing beside them. No parsing, no
// log, no guard.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "base/o_critical_section.h"
#include "base/windows_api.h"

namespace kova::bench {

// How the block grows that a request is gathered in. kReserved: there is room
// for everything from the beginning, so that nothing received ever moves.
// kExact: the block is as long as what it holds and reallocated for each piece.
enum class Growth { kReserved, kExact };

// What the bare server does with a connection; nothing of it changes while the
// server runs.
struct BarePlan {
  std::string answer;     // sent as it is
  bool copy = false;      // into a block of its own length for each request
  bool keepOpen = false;  // goes on receiving after an answer
  size_t bodyBytes = 0;   // received before an answer; 0: any
  Growth growth = Growth::kReserved;
  std::wstring printer;  // looked up for each answer, unless empty
};

// The live connections, each with a thread of its own that is started afresh.
// The lock is held to add, to remove and to signal, as a stop needs it, and for
// nothing else.
class BareConnections {
 public:
  explicit BareConnections(BarePlan plan) : m_plan(std::move(plan)) {}
  BareConnections(const BareConnections&) = delete;
  BareConnections& operator=(const BareConnections&) = delete;

  // Serves `socket`, which is taken over, on a thread that is made suspended
  // and resumed, as the product does it.
  void Start(SOCKET socket);

  // Signals every connection and looks every 100 ms, at most 50 times, whether
  // all are gone. Returns how many are not: the product would terminate them.
  size_t Release();

 private:
  class Connection;

  // False when a release has begun: the connection then just ends.
  [[nodiscard]] bool Add(Connection* connection);
  void Remove(const Connection* connection);

  const BarePlan m_plan;
  OCriticalSection m_lock;
  std::vector<Connection*> m_connections KOVA_GUARDED_BY(m_lock);
  bool m_releasing KOVA_GUARDED_BY(m_lock) = false;
  // From before a thread is started until it has closed everything.
  std::atomic<size_t> m_alive{0};
};

}  // namespace kova::bench
