#include "check/connection_thread.h"

#include <process.h>

#include <cstdlib>
#include <utility>

namespace kova::ctl::check {

ConnectionThread::ConnectionThread(WorkerState& state, size_t thread,
                                   std::function<void()> body)
    : m_state(state), m_number(thread), m_body(std::move(body)) {
  m_thread.Reset(reinterpret_cast<HANDLE>(
      ::_beginthreadex(nullptr, 0, &Run, this, 0, nullptr)));
  if (!m_thread.IsValid()) std::abort();
}

ConnectionThread::~ConnectionThread() {
  ::WaitForSingleObject(m_thread.Get(), INFINITE);
  if (m_returned) return;
  m_state.endedThread = m_state.calls[m_number].callee.load();
  ::TerminateProcess(::GetCurrentProcess(), 0);
}

unsigned ConnectionThread::Run(void* self) {
  auto* const thread = static_cast<ConnectionThread*>(self);
  thread->m_body();
  thread->m_returned = true;
  return 0;
}

}  // namespace kova::ctl::check
