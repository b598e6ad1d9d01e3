// The header lines of a request, as they lie in its bytes.
#pragma once

#include <string_view>

namespace kova {

// The trimmed value of the first line of `block` that has the name `name`,
// whatever its case; empty where there is none. Lines end at LFs and are
// trimmed; a blank before the colon is part of a line's name.
[[nodiscard]] std::string_view FindHeaderValue(std::string_view block,
                                               std::string_view name);

// Whether `availableBytes` of a body are all that the header block declares.
// No byte at all is enough, whatever is declared.
[[nodiscard]] bool HasWholeBody(std::string_view block, size_t availableBytes);

}  // namespace kova
