// A thread for the extension to run on, as the server gives one to each
// connection.
#pragma once

#include <functional>

#include "base/handles.h"
#include "check/worker_state.h"

namespace kova::ctl::check {

// Runs `body` on a thread of its own, whose calls into the extension have the
// number `thread`. An extension that ends the thread ends the process: it is
// noted in `state`, and nothing else of the extension runs.
class ConnectionThread {
 public:
  ConnectionThread(WorkerState& state, size_t thread,
                   std::function<void()> body);
  // Waits for the end of `body`.
  ~ConnectionThread();

  ConnectionThread(const ConnectionThread&) = delete;
  ConnectionThread& operator=(const ConnectionThread&) = delete;

 private:
  static unsigned __stdcall Run(void* self);

  WorkerState& m_state;
  const size_t m_number;
  const std::function<void()> m_body;
  std::atomic<bool> m_returned{false};
  UniqueKernelHandle m_thread;
};

}  // namespace kova::ctl::check
