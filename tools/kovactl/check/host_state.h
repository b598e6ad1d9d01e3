// What belongs to the host process and to its thread, and whether a call has
// changed it.
#pragma once

#include "check/extension_call.h"
#include "check/reporter.h"

namespace kova::ctl::check {

// The state of process and thread when it was made.
class HostState {
 public:
  HostState();

  // Reports, as of `callee`, what has changed since, and puts it back. On the
  // thread that made this.
  void Check(Callee callee, Reporter& reporter) const;

  static constexpr size_t kTraits = 11;

 private:
  uint64_t m_values[kTraits] = {};
  std::wstring m_folder;
};

// CallExtension that also checks the host's state. Not while other threads
// call.
template <typename Body>
void CallWatched(WorkerState& state, size_t thread, Reporter& reporter,
                 Callee callee, Body body) {
  const HostState host;
  CallExtension(state, thread, callee, body);
  host.Check(callee, reporter);
}

}  // namespace kova::ctl::check
