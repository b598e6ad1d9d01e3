#include "bench/servers/bare_connections.h"

#include <algorithm>

#include "bench/servers/bare_connection.h"

namespace kova::bench {
namespace {

constexpr DWORD kLookAgainMs = 100;
constexpr int kMostLooks = 50;

}  // namespace

void BareConnections::Start(SOCKET socket) {
  ++m_alive;
  BareConnection::Start(*this, socket);
}

bool BareConnections::Add(BareConnection* connection) {
  const ScopedLock held(m_lock);
  if (m_releasing) return false;
  m_connections.push_back(connection);
  return true;
}

void BareConnections::Remove(const BareConnection* connection) {
  const ScopedLock held(m_lock);
  const auto found =
      std::find(m_connections.begin(), m_connections.end(), connection);
  *found = m_connections.back();
  m_connections.pop_back();
}

size_t BareConnections::Release() {
  {
    const ScopedLock held(m_lock);
    m_releasing = true;
    for (BareConnection* const connection : m_connections) {
      connection->SignalExit();
    }
  }
  for (int look = 0; look < kMostLooks && m_alive.load() != 0; ++look) {
    ::Sleep(kLookAgainMs);
  }
  return m_alive.load();
}

}  // namespace kova::bench
