// The process that runs the extension.
#pragma once

#include <cstdint>

namespace kova::ctl::check {

// Does the steps of the task that lies behind the inherited handle, and reports
// them. False if nothing of the kind lies there. The process should end after
// that; its end is a step, too.
bool RunWorker(uint64_t stateHandle);

}  // namespace kova::ctl::check
