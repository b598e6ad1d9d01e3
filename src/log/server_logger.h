// The logger that the whole server writes to.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "log/logger.h"

// The server's logger, "Corvane KOVA Server", made by the first call with
// Error, Warning and Info enabled unless the registry says otherwise. Lives
// until the module is unloaded. May be called on any thread; threads whose
// first calls meet all get the same logger. Callers tolerate null. Keeps the
// thread's last error.
std::shared_ptr<tk::Logger> GetServerLogger();

namespace kova {

inline constexpr wchar_t kServerLoggerName[] = L"Corvane KOVA Server";
// Error, Warning and Info.
inline constexpr uint32_t kServerLoggerDefaultMask = 0xE0000000;

// Owns the server's logger from its making to the unloading of the module.
// Made in place, set once, read by all threads.
class ServerLoggerSlot {
 public:
  constexpr ServerLoggerSlot() = default;
  ~ServerLoggerSlot();

  ServerLoggerSlot(const ServerLoggerSlot&) = delete;
  ServerLoggerSlot& operator=(const ServerLoggerSlot&) = delete;

  // The logger, made by the first call.
  [[nodiscard]] const std::shared_ptr<tk::Logger>& Get() {
    const auto* const current = m_logger.load(std::memory_order_acquire);
    return current != nullptr ? *current : Make();
  }

 private:
  const std::shared_ptr<tk::Logger>& Make();

  std::atomic<const std::shared_ptr<tk::Logger>*> m_logger = nullptr;
};
extern ServerLoggerSlot g_serverLogger;

// The server's logger without a reference count: what a disabled log call can
// afford. Valid until the module is unloaded.
inline tk::Logger* ServerLogger() { return g_serverLogger.Get().get(); }

}  // namespace kova
