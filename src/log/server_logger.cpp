#include "log/server_logger.h"

#include <atomic>
#include <utility>

#include "base/last_error_keeper.h"

namespace kova {
namespace {

constexpr wchar_t kServerLoggerName[] = L"Corvane KOVA Server";
constexpr uint32_t kDefaultMask = 0xE0000000;

using LoggerPointer = std::shared_ptr<tk::Logger>;

// Set once. No lock is held while the logger is made, so a crash in there can
// still be logged; where two threads make one, the first to arrive wins.
class ServerLoggerSlot {
 public:
  constexpr ServerLoggerSlot() = default;
  ~ServerLoggerSlot() { delete m_logger.exchange(nullptr); }

  ServerLoggerSlot(const ServerLoggerSlot&) = delete;
  ServerLoggerSlot& operator=(const ServerLoggerSlot&) = delete;

  const LoggerPointer& Get() {
    const LoggerPointer* const current =
        m_logger.load(std::memory_order_acquire);
    return current != nullptr ? *current : Make();
  }

 private:
  const LoggerPointer& Make() {
    const LastErrorKeeper keeper;
    auto fresh = std::make_unique<const LoggerPointer>(
        tk::CreateLogger(kServerLoggerName, kDefaultMask));
    const LoggerPointer* current = nullptr;
    if (m_logger.compare_exchange_strong(current, fresh.get())) {
      return *fresh.release();
    }
    return *current;
  }

  std::atomic<const LoggerPointer*> m_logger = nullptr;
};

constinit ServerLoggerSlot g_serverLogger;

}  // namespace

tk::Logger* ServerLogger() { return g_serverLogger.Get().get(); }

}  // namespace kova

std::shared_ptr<tk::Logger> GetServerLogger() {
  return kova::g_serverLogger.Get();
}
