// Decides what a request is answered with.
#pragma once

#include <cstdint>
#include <string>

#include "request.h"

namespace sample {

// A complete HTTP response, and whether the connection outlives it.
struct Answer {
  std::string bytes;
  bool keepOpen = false;
};

// GET and HEAD get the printer's status page, POST gets back what it posted,
// anything else 405. `client` is the client's address as text, `answered` the
// number of this request. The form field keep=1 keeps the connection open.
Answer MakeAnswer(const Request& request, const std::string& client,
                  uint64_t answered);

}  // namespace sample
