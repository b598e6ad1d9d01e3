// What the scripted extension answers, for it and for those who ask it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kova::test {

// For "act=bytes-<count>".
inline std::string Pattern(size_t count) {
  std::string bytes(count, '\0');
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>('a' + i % 26);
  return bytes;
}

// For a request without an action that says otherwise: what it was given.
inline std::string Echo(const std::string& clientAddress, uint32_t keepOpen,
                        const std::string& request) {
  const std::string body = "address=" + clientAddress +
                           "\nkeepOpen=" + std::to_string(keepOpen) + "\n" +
                           request;
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

}  // namespace kova::test
