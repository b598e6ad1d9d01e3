#include "log/log_line.h"

namespace kova {

std::wostream& operator<<(std::wostream& stream, Hex number) {
  wchar_t digits[16];
  wchar_t* const end = digits + 16;
  wchar_t* first = end;
  do {
    *--first = L"0123456789abcdef"[number.value & 0xF];
    number.value >>= 4;
  } while (number.value != 0);
  return stream.write(first, end - first);
}

LogLine::LogLine(const std::shared_ptr<tk::Logger>& logger,
                 tk::LogChannel channel, const char* method)
    : m_channel(channel) {
  if (logger == nullptr || !logger->IsEnabled(channel)) return;
  Begin(logger.get(), method);
  m_text->owner = logger;
}

void LogLine::Begin(tk::Logger* logger, const char* method) {
  const LastErrorKeeper keeper;
  m_text.emplace(logger);
  *this << method << L": ";
}

void LogLine::Write() {
  tk::Logger* const logger = m_text->logger;
  if (m_channel == tk::LogChannel::Error) {
    logger->Error(m_text->stream.str());
  } else if (m_channel == tk::LogChannel::Warning) {
    logger->Warning(m_text->stream.str());
  } else {
    logger->Log(m_channel, m_text->stream.str());
  }
}

}  // namespace kova
