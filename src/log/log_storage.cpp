#include "log/log_storage.h"

#include "log/channel_formatter.h"
#include "log/debugger_sink.h"
#include "log/event_log_sink.h"
#include "log/file_sink.h"

namespace tk {

LogStorage::LogStorage()
    : m_sinkFactories{&kova::MakeEventLogSink, &kova::MakeFileSink,
                      &kova::MakeDebuggerSink},
      m_formatterFactories{&kova::MakeChannelFormatter} {}

std::shared_ptr<LogStorage> LogStorage::OfThisThread() {
  thread_local std::shared_ptr<LogStorage> storage;
  if (storage == nullptr) storage = std::make_shared<LogStorage>();
  return storage;
}

}  // namespace tk
