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
  double tookMs = 0;                 // all calls together
  double longestMs = 0;              // the longest of them
  Callee slowest = Callee::kHandle;  // which that was
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

  // Sends the request twice, into buffers of different contents, so that each
  // byte that is not written shows, and judges time and answer. Yields the
  // second one.
  Answer SendTwice(const Request& request);

  // Releases the response without asking for length or bytes.
  void SendAndRelease(const Request& request);

  // Asks for the length a second time, which the server never does.
  void SendAndMeasureTwice(const Request& request);

  // Whether the answer is sound HTTP. Send leaves that open.
  void Judge(const Request& request, Answer& answer);

  // Send in single calls: Begin, Next until it returns false, End. `request`
  // must stay until then.
  void Begin(const Request& request, uint32_t keepOpen = 0);
  bool Next();
  Answer End();

 private:
  template <typename Body>
  void Call(Callee callee, Body body);
  void Report(Flaw flaw, Callee callee, std::string detail = {}) {
    m_reporter.Report({flaw, callee, std::move(detail)});
  }
  void Handle();
  void CheckArguments(GuardedArea& request, GuardedArea& address,
                      GuardedArea& flag);
  void CheckFlag(GuardedArea& flag);
  void Measure();
  uint32_t Length();
  void Copy();
  void CheckCopy(GuardedArea& area, const char* buffer, int32_t copied);
  void Release();
  void CheckTime(const Answer& answer);

  WorkerState& m_state;
  const size_t m_thread;
  const Extension& m_extension;
  Reporter& m_reporter;

  // Of the request that is on its way:
  const Request* m_request = nullptr;  // weak
  Callee m_next = Callee::kNone;
  KOVA_Response m_response = nullptr;  // the extension's
  uint32_t m_lengthBytes = 0;
  Answer m_answer;
  char m_fill = GuardedArea::kUnwritten;
};

// How many bytes were left unwritten, given two copies of the same answer, the
// first made into bytes of kUnwritten, the second into bytes of kOtherFill.
// What differs in length is compared from its end, too.
inline constexpr char kOtherFill = '\x5A';
size_t CountUnwritten(std::string_view first, std::string_view second);

}  // namespace kova::ctl::check
