// Requests as clients send them, to be parsed over and over.
#pragma once

#include <string>
#include <vector>

namespace kova::bench {

struct SampleRequest {
  const char* name;
  std::string bytes;
};

// Two kinds of browser asking for a page, about 700 bytes each, and a print
// client that posts a form.
const std::vector<SampleRequest>& SampleRequests();

}  // namespace kova::bench
