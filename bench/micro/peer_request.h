// A request parsed by the distribution's HTTP parser, to compare with.
#pragma once

#include <http_parser.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kova::bench {

// What `Text` keeps of a request: std::string copies what it is given, as
// HTTPRequest does; std::string_view refers to the parsed bytes.
template <typename Text>
struct PeerRequest {
  Text method;
  Text url;
  std::vector<std::pair<Text, Text>> headers;
  Text body;
  bool isComplete = false;
  uint16_t major = 0;
  uint16_t minor = 0;
};

// Parses `bytes`, which hold one whole request.
template <typename Text>
[[nodiscard]] PeerRequest<Text> ParseWithPeer(std::string_view bytes);

}  // namespace kova::bench
