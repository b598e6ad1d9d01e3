#include "log/log_line.h"

#include "log/server_logger.h"

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

LogLine::LogLine(tk::LogChannel channel, const char* method)
    : m_channel(channel), m_logger(ServerLogger()) {
  if (m_logger != nullptr && m_logger->IsEnabled(channel)) Begin(method);
}

LogLine::LogLine(const std::shared_ptr<tk::Logger>& logger,
                 tk::LogChannel channel, const char* method)
    : m_channel(channel), m_logger(logger.get()) {
  if (m_logger != nullptr && m_logger->IsEnabled(channel)) {
    m_owner = logger;
    Begin(method);
  }
}

void LogLine::Begin(const char* method) {
  const LastErrorKeeper keeper;
  m_text.emplace();
  *this << method << L": ";
}

LogLine::~LogLine() noexcept(false) {
  if (!m_text) return;
  if (m_channel == tk::LogChannel::Error) {
    m_logger->Error(m_text->stream.str());
  } else if (m_channel == tk::LogChannel::Warning) {
    m_logger->Warning(m_text->stream.str());
  } else {
    m_logger->Log(m_channel, m_text->stream.str());
  }
}

}  // namespace kova
