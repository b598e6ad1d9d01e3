// One request's way through an extension's four functions, watched.
#pragma once

#include "check/board.h"
#include "check/extension.h"
#include "check/finding_sink.h"
#include "check/guarded_area.h"
#include "check/request_set.h"

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
  // slot  the calling thread's on the board. All must outlive this.
  Exchange(Board& board, size_t slot, const Extension& extension,
           FindingSink& sink)
      : m_board(board), m_slot(slot), m_extension(extension), m_sink(sink) {}

  // keepOpen: the connection's flag as earlier requests left it.
  Answer Send(const Request& request, uint32_t keepOpen = 0);

  // Releases the response without asking for length or bytes.
  void SendAndRelease(const Request& request);

 private:
  template <typename Body>
  void Call(Entry entry, Body body) {
    CallEntry(m_board, m_slot, entry, body);
  }
  void Report(Flaw flaw, Entry entry, std::string detail = {}) {
    m_sink.Report({flaw, entry, std::move(detail)});
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

  Board& m_board;
  const size_t m_slot;
  const Extension& m_extension;
  FindingSink& m_sink;
  GuardedArea m_request;
  GuardedArea m_address;
  GuardedArea m_flag;
  GuardedArea m_buffer;
};

}  // namespace kova::ctl::check
