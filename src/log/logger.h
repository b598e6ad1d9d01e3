// A named logger: its channel mask, its line prefixes and its sinks.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/kernel_lock.h"
#include "base/windows_api.h"
#include "log/log_channel.h"

namespace kova {

// Where the loggers' masks are, below HKEY_LOCAL_MACHINE: one REG_DWORD value
// per logger, named like the logger.
inline constexpr wchar_t kMaskKey[] =
    L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks";

}  // namespace kova

namespace tk {

// The same key with a trailing backslash.
extern const std::wstring MaskKeyPath;

class Logger;

// Gives a prefix of a line that goes out on a channel.
using LogFormatter = std::function<std::wstring(LogChannel)>;
// Receives a finished line. Called on the thread that logs, by several threads
// at once.
using LogSink = std::function<void(Logger*, LogChannel, const std::wstring&)>;

// Always owned by std::shared_ptr. The mask follows the registry value that
// bears the logger's name, with a delay of at most about 5000 ms: it is read
// again only when a channel test or a log call comes along. Every method may
// be called on any thread at any time, and each leaves the thread's last error
// as it found it. No method reports a failure.
class Logger {
 public:
  // `name` is the name of the mask's registry value, of the event source and
  // of the log file. `defaultMask` holds until the registry has a value, and
  // is written there if it has none. `formatters` and `sinks` come before the
  // ones that the calling thread's LogStorage supplies. `eventLogKind` is 0
  // for the "Application" event log, 1 for "System".
  Logger(std::wstring name, uint32_t defaultMask,
         std::vector<LogFormatter> formatters, std::vector<LogSink> sinks,
         uint32_t eventLogKind);

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Whether any bit of `channel` is in the mask, which is refreshed if due.
  [[nodiscard]] bool IsEnabled(LogChannel channel) {
    return (Bits(channel) & RefreshMask()) != 0;
  }

  // Puts the formatters' prefixes, a blank after each, in front of `message`
  // and hands the line to every sink. Does nothing on a disabled channel;
  // Error and Warning are never disabled here.
  void Log(LogChannel channel, std::wstring message);
  // Log() on the channel of the same name.
  void Error(std::wstring message);
  void Warning(std::wstring message);

  // Makes sure that every logger that ever had a mask on this machine has an
  // event source (see PrepareEventSource). If the masks cannot be read, says
  // so to the debugger.
  static void PopulateEventSourceRegKeys();

  // The mask, refreshed from the registry if the last refresh is more than
  // 5000 ms ago.
  uint32_t RefreshMask() {
    // The last refresh is read before the clock, so that a refresh by another
    // thread in between cannot make the difference wrap.
    const uint64_t last = m_lastRefresh.load();
    const uint64_t now = ::GetTickCount64();
    if (now - last > kRefreshIntervalMs) RefreshAt(now);
    return m_mask.load();
  }
  // Adds bits to the mask, until the next refresh replaces it.
  void WidenMask(uint32_t bits) { m_mask.fetch_or(bits); }

  [[nodiscard]] const std::wstring& Name() const { return m_name; }
  [[nodiscard]] uint32_t EventLogKind() const { return m_eventLogKind; }
  // Serialises this logger's event-log reports; taken for nothing else. A
  // thread that is killed or crashes inside a report does not keep it.
  // Deliberate: where it cannot be locked, nothing is raised and the report is
  // made all the same: the line of a crash counts for more than its turn.
  [[nodiscard]] kova::KernelLock& EventLogLock() { return m_eventLogLock; }

 private:
  static constexpr uint64_t kRefreshIntervalMs = 5000;

  void RefreshAt(uint64_t now);
  void AppendFromStorage();
  void OpenMaskKey();
  uint32_t InitialMask();
  uint32_t ReadMask();
  void WriteMask();
  bool QueryMask(uint32_t& mask) const;

  kova::KernelLock m_eventLogLock;
  // GetTickCount64() at the last refresh.
  std::atomic<uint64_t> m_lastRefresh;
  std::atomic<uint32_t> m_mask;
  std::wstring m_name;
  const uint32_t m_eventLogKind;
  // Deliberate: two settings that every logger carries and nothing reads.
  [[maybe_unused]] const uint32_t m_firstReserved = 45;
  [[maybe_unused]] const uint32_t m_secondReserved = 120;
  // Deliberate: stays open when the logger goes; null if it cannot be opened.
  HKEY m_maskKey = nullptr;
  // Filled by the constructor and never changed, hence read without a lock.
  std::vector<LogFormatter> m_formatters;
  std::vector<LogSink> m_sinks;
};

// The calling thread's logger of that name, made if there is none yet. If
// there is one, its mask is widened by `defaultMask`, never narrowed. Loggers
// of one name made on different threads are different objects. Never null.
std::shared_ptr<Logger> CreateLogger(std::wstring name, uint32_t defaultMask);

}  // namespace tk
