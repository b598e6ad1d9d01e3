// Ctrl-C, and everything else that asks a console program to end.
#pragma once

#include <cstdint>
#include <optional>

#include "base/windows_api.h"

namespace kova::ctl {

// From construction to destruction, Ctrl-C, Ctrl-Break, closing the console,
// logging off and shutting down do not end the process but raise the signal;
// under Wine so does SIGINT. The last three end the process as soon as their
// handler returns, so the handler waits there until this object is destroyed:
// keep it longer than whatever must be put back. There may be one at a time.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();

  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  // Waits until the signal is raised, at most `seconds`; without a limit if
  // there is none. True if it was raised.
  [[nodiscard]] bool Wait(std::optional<uint32_t> seconds) const;

  // Set once the signal is raised; to be waited for together with others. Not
  // the caller's to close.
  [[nodiscard]] HANDLE Event() const;
};

}  // namespace kova::ctl
