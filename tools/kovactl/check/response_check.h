// Whether the bytes that an extension answers are a well-formed HTTP response.
#pragma once

#include <string_view>

#include "check/finding.h"

namespace kova::ctl::check {

// What the bytes answer, and what becomes of the connection.
struct ResponseSetting {
  bool toHead = false;
  bool toHttp10 = false;
  bool keepOpen = false;  // the keep-open flag after the call
};

// A request offers it as a field's value, behind an encoded line end: a header
// of that name in the answer was split off another one.
inline constexpr std::string_view kSplitHeader = "X-Kovacheck";

struct ResponseVerdict {
  int status = 0;  // 0 without a readable status line
  Findings findings;
};

// Checks status line, header lines, line ends and the length of the body
// against RFC 9112. The server sends an extension's bytes unchanged, so nothing
// is repaired on the way.
ResponseVerdict CheckResponse(std::string_view bytes,
                              const ResponseSetting& setting);

// `bytes` for a report: at most 40 of them, in quotes, what is not printable
// ASCII as an escape.
std::string Quoted(std::string_view bytes);

}  // namespace kova::ctl::check
