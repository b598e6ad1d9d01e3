#include "log/server_logger.h"

#include <utility>

#include "base/handles.h"

namespace kova {

constinit ServerLoggerSlot g_serverLogger;

ServerLoggerSlot::~ServerLoggerSlot() { delete m_logger.exchange(nullptr); }

// Deliberate: no lock is held while the logger is made, so a crash in there can
// still be logged; where two threads make one, the first to arrive wins, and
// the other's stays in its thread's storage and serves nobody.
const std::shared_ptr<tk::Logger>& ServerLoggerSlot::Make() {
  const LastErrorKeeper keeper;
  auto fresh = std::make_unique<const std::shared_ptr<tk::Logger>>(
      tk::CreateLogger(kServerLoggerName, kServerLoggerDefaultMask));
  const std::shared_ptr<tk::Logger>* current = nullptr;
  if (m_logger.compare_exchange_strong(current, fresh.get())) {
    return *fresh.release();
  }
  return *current;
}

}  // namespace kova

std::shared_ptr<tk::Logger> GetServerLogger() {
  return kova::g_serverLogger.Get();
}
