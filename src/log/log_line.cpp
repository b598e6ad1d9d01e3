#include "log/log_line.h"

namespace tk {

std::wstring LastErrorText() {
  const DWORD error = ::GetLastError();
  const kova::LastErrorKeeper keeper;
  wchar_t text[64] = {};
  ::wsprintfW(text, L" GetLastError: 0x%08X", error);
  return text;
}

}  // namespace tk

namespace kova {

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
    logger->Error(m_text->text);
  } else if (m_channel == tk::LogChannel::Warning) {
    logger->Warning(m_text->text);
  } else {
    logger->Log(m_channel, m_text->text);
  }
}

}  // namespace kova
