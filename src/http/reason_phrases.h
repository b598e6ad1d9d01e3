// The phrases that go with HTTP status codes.
#pragma once

#include <cstdint>

namespace kova {

// The phrase of RFC 2616 section 6.1.1 for `code`, a blank in front; " OK" for
// every code without one, 200 included.
[[nodiscard]] const char* ReasonPhrase(uint32_t code);

}  // namespace kova
