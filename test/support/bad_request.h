// The answer that the server makes by itself.
#pragma once

#include <string>

namespace kova::test {

// The bytes of the 400 answer, with "<date>" for the date and `connection` as
// the value of its "Connection" header.
[[nodiscard]] std::string BadRequest(const std::string& connection = "");

// `answer` with the value of its first "Date" header replaced by "<date>" if
// it is well-formed ("Sat, 21 Nov 2026 02:41:09 GMT"), else unchanged.
[[nodiscard]] std::string MaskDate(std::string answer);

}  // namespace kova::test
