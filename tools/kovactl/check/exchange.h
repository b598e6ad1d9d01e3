// One request's way through an extension's four functions, watched.
#pragma once

#include "check/extension.h"
#include "check/guarded_area.h"
#include "check/reporter.h"
#include "check/request_set.h"
#include "check/worker_state.h"

namespace kova::ctl::check {

// What came of a request. `bytes` are the response's, empty without one.
struct Answer {
  bool hasResponse = false;
  int status = 0;
  uint32_t keepOpen = 0;
  std::string bytes;
};

// Calls the functions as the server does, in its order, with memory that
// notices misuse, and reports what was wrong. One per thread.
class Exchange {
 public:
  // thread: the calling thread's number in state.calls. All must outlive this.
  Exchange(WorkerState& state, size_t thread, const Extension& extension,
           Reporter& reporter)
      : m_state(state),
        m_thread(thread),
        m_extension(extension),
        m_reporter(reporter) {}

  // keepOpen: the connection's flag as earlier requests left it.
  Answer Send(const Request& request, uint32_t keepOpen = 0);

  // Releases the response without asking for length or bytes.
  void SendAndRelease(const Request& request);

 private:
  template <typename Body>
  void Call(Callee callee, Body body) {
    CallExtension(m_state, m_thread, callee, body);
  }
  void Report(Flaw flaw, Callee callee, std::string detail = {}) {
    m_reporter.Report({flaw, callee, std::move(detail)});
  }
  KOVA_Response Handle(const Request& request, Answer& answer);
  void CheckArguments();
  void CheckFlag(Answer& answer);
  void Fetch(KOVA_Response response, Answer& answer);
  uint32_t Length(KOVA_Response response);
  void Copy(KOVA_Response response, uint32_t lengthBytes, Answer& answer);
  void CheckCopy(char* buffer, uint32_t lengthBytes, int32_t copied,
                 Answer& answer);
  void Release(KOVA_Response response);

  WorkerState& m_state;
  const size_t m_thread;
  const Extension& m_extension;
  Reporter& m_reporter;
  GuardedArea m_request;
  GuardedArea m_address;
  GuardedArea m_flag;
  GuardedArea m_buffer;
};

}  // namespace kova::ctl::check
