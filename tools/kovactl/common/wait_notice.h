// Tells a waiting user what a slow command waits for.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "common/output.h"

namespace kova::ctl {

// From construction to destruction, what takes more than two seconds is told
// on standard error: `what` and the seconds so far. On a console this is one
// line, renewed every second and wiped at the end; in a pipe a line every five
// seconds. Runs a thread of its own; may be made on any thread.
class WaitNotice {
 public:
  explicit WaitNotice(std::wstring what);
  ~WaitNotice();

  // From now on it is waited for `what`. Any thread.
  void Say(std::wstring what);

  WaitNotice(const WaitNotice&) = delete;
  WaitNotice& operator=(const WaitNotice&) = delete;

 private:
  void Tell();

  std::wstring m_what;
  const Output m_errors;
  std::mutex m_mutex;
  std::condition_variable m_ended;
  bool m_isEnded = false;
  std::thread m_teller;  // after all that it uses
};

}  // namespace kova::ctl
