// What a thread's loggers are made from, and where they are kept.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "log/logger.h"

namespace tk {

using LogFormatterFactory = std::function<LogFormatter(Logger*)>;
using LogSinkFactory = std::function<LogSink(Logger*)>;

// One per thread, made on the thread's first use of it and destroyed with the
// thread; only that thread uses it, so nothing here is locked. Keeps the
// thread's loggers alive.
class LogStorage {
 public:
  // Has the channel-name formatter's factory and the three sink factories:
  // event log, file, debugger, in this order.
  LogStorage();

  LogStorage(const LogStorage&) = delete;
  LogStorage& operator=(const LogStorage&) = delete;

  // The calling thread's storage. Never null.
  static std::shared_ptr<LogStorage> OfThisThread();

  [[nodiscard]] const std::vector<LogSinkFactory>& SinkFactories() const {
    return m_sinkFactories;
  }
  [[nodiscard]] const std::vector<LogFormatterFactory>& FormatterFactories()
      const {
    return m_formatterFactories;
  }

  // The entry of that name, made empty if there is none. The reference holds
  // until the storage goes.
  [[nodiscard]] std::shared_ptr<Logger>& LoggerNamed(const std::wstring& name) {
    return m_loggers[name];
  }

  // Whether this thread has made sure already that the log folder exists.
  [[nodiscard]] bool IsLogFolderReady() const { return m_logFolderReady; }
  void SetLogFolderReady() { m_logFolderReady = true; }

 private:
  std::vector<LogSinkFactory> m_sinkFactories;
  std::vector<LogFormatterFactory> m_formatterFactories;
  std::unordered_map<std::wstring, std::shared_ptr<Logger>> m_loggers;
  bool m_logFolderReady = false;
};

}  // namespace tk
