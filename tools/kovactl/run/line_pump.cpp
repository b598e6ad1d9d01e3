#include "run/line_pump.h"

#include <utility>

#include "run/line_style.h"

namespace kova::ctl {

LinePump::LinePump(const Output& output, bool color, bool mistakesOnly)
    : m_output(output),
      m_color(color),
      m_mistakesOnly(mistakesOnly),
      m_thread([this] { Show(); }) {}

LinePump::~LinePump() {
  {
    const std::lock_guard held(m_mutex);
    m_closing = true;
  }
  m_changed.notify_one();
  m_thread.join();
}

void LinePump::PushLine(std::wstring line) {
  if (m_mistakesOnly && !line.starts_with(L"Error ") &&
      !line.starts_with(L"Warning ")) {
    return;
  }
  std::wstring styled = StyleLine(line, m_color);
  if (line.starts_with(L"Error ")) {
    const std::lock_guard held(m_mutex);
    m_errors.push_back(std::move(line));
  }
  PushText(std::move(styled));
}

void LinePump::PushNotice(std::wstring_view notice) {
  PushText(StyleNotice(notice, m_color));
}

std::vector<std::wstring> LinePump::ErrorLines() const {
  const std::lock_guard held(m_mutex);
  return m_errors;
}

void LinePump::PushText(std::wstring styled) {
  {
    const std::lock_guard held(m_mutex);
    m_waiting.push_back(std::move(styled));
  }
  m_changed.notify_one();
}

void LinePump::Show() {
  std::unique_lock held(m_mutex);
  while (true) {
    m_changed.wait(held, [this] { return m_closing || !m_waiting.empty(); });
    if (m_waiting.empty()) return;
    const std::wstring line = std::move(m_waiting.front());
    m_waiting.pop_front();
    held.unlock();
    m_output.Write(line);
    held.lock();
  }
}

}  // namespace kova::ctl
