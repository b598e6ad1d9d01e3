// Words for exceptions, as an administrator can look them up.
#pragma once

#include <cstdint>
#include <string>

#include "logs/minidump.h"

namespace kova::ctl {

// What a well-known exception code means, in a few words; "an exception of the
// program's own" for others with the customer bit, else "unknown exception".
std::wstring ExceptionName(uint32_t code);

// The name, and what an access violation or a page error did to which address.
std::wstring ExceptionText(const DumpException& exception);

}  // namespace kova::ctl
