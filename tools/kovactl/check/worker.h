// The process that runs the extension.
#pragma once

#include <cstdint>

namespace kova::ctl::check {

// Does the steps that the board behind the inherited handle orders, and reports
// them. False if the handle is no board. The process should end after that;
// its end is a step, too.
bool RunWorker(uint64_t boardHandle);

}  // namespace kova::ctl::check
