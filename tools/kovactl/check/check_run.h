// A whole check: workers, one after the other, and what they report.
#pragma once

#include <functional>

#include "check/check_report.h"
#include "check/worker.h"

namespace kova::ctl::check {

// How far a check is: the step, and how many requests it has handed over.
using CheckProgress = std::function<void(size_t step, uint64_t requests)>;

// Checks an extension. A crash or a hang ends one step; the next one is done in
// a new process. Takes some seconds.
CheckReport CheckExtension(const CheckOptions& options,
                           const CheckProgress& onProgress);

}  // namespace kova::ctl::check
