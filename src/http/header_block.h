// The header lines of a request, as they lie in its bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "http/request_scan.h"

namespace kova {

// What lies between the request line and the headers' end; may be empty.
[[nodiscard]] std::string_view HeaderBlock(std::string_view bytes,
                                           const ScannedPart& line,
                                           const ScannedPart& headers);

// The trimmed value of the first line of `block` that has the name `name`,
// whatever its case; empty where there is none. Lines end at LFs and are
// trimmed; a blank before the colon is part of a line's name.
[[nodiscard]] std::string_view FindHeaderValue(std::string_view block,
                                               std::string_view name);

// The length that the header block announces for the body; where it announces
// none, the least number there is.
[[nodiscard]] int32_t AnnouncedBodyBytes(std::string_view block);

// Whether `availableBytes` of a body are all that was announced. No byte at
// all is enough, whatever that is.
[[nodiscard]] bool IsWholeBody(int32_t announcedBytes, size_t availableBytes);

}  // namespace kova
