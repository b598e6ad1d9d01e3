// Carries lines from the threads that make them to the screen.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/output.h"

namespace kova::ctl {

// Takes log lines of the server, on the threads that log them.
class LineSink {
 public:
  virtual ~LineSink() = default;
  virtual void PushLine(std::wstring line) = 0;
};

// Shows lines in the order in which they come, on a thread of its own: a
// console that stands still, because its user marks text, must not hold up the
// server's threads. Any thread may push. The destructor shows what is left.
class LinePump : public LineSink {
 public:
  // `output` must outlive the pump. `mistakesOnly`: of the log lines, those of
  // the channels Error and Warning are shown alone.
  LinePump(const Output& output, bool color, bool mistakesOnly = false);
  ~LinePump() override;

  LinePump(const LinePump&) = delete;
  LinePump& operator=(const LinePump&) = delete;

  // A log line of the server.
  void PushLine(std::wstring line) override;
  // A text that is shown as it is.
  void PushText(std::wstring text);
  // A message of this tool.
  void PushNotice(std::wstring_view notice);

  // The log lines of channel Error so far, in order.
  [[nodiscard]] std::vector<std::wstring> ErrorLines() const;

 private:
  void Show();

  const Output& m_output;
  const bool m_color;
  const bool m_mistakesOnly;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::wstring> m_waiting;
  std::vector<std::wstring> m_errors;
  bool m_closing = false;
  std::thread m_thread;
};

}  // namespace kova::ctl
