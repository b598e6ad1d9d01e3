#include "test/net/gate.h"

namespace kova::test {
namespace {

constexpr DWORD kGateMs = 10000;

}  // namespace

Gate::Gate()
    : m_open(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_came(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

Gate::~Gate() {
  ::CloseHandle(m_open);
  ::CloseHandle(m_came);
}

void Gate::Pass() {
  // In one call: a test may kill the thread as soon as it has come, and a
  // thread that is killed outside a wait may hold anything.
  ::SignalObjectAndWait(m_came, m_open, INFINITE, FALSE);
}

void Gate::Open() { ::SetEvent(m_open); }

bool Gate::SomebodyCame() {
  return ::WaitForSingleObject(m_came, kGateMs) == WAIT_OBJECT_0;
}

}  // namespace kova::test
