// Text between UTF-8, which the command line library and pipes speak, and
// UTF-16, which Windows speaks. Malformed input gives U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace kova::ctl {

std::string ToUtf8(std::wstring_view text);
std::wstring ToWide(std::string_view utf8);

}  // namespace kova::ctl
